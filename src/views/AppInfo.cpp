#include "AppInfo.h"

#include "model/AppVersion.h"

QString AppInfo::versionNumber() const {
    return QString::fromLatin1(AppVersion::number);
}
QString AppInfo::versionDate() const {
    return QString::fromLatin1(AppVersion::date);
}
