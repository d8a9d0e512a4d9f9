#include "AppInfo.h"

#include "model/AppVersion.h"

QString AppInfo::versionNumber() const {
    return QString::fromLatin1(AppVersion::number);
}
QString AppInfo::versionDate() const {
    return QString::fromLatin1(AppVersion::date);
}

QString AppInfo::browserPermissionNote() const {
#ifdef Q_OS_MACOS
    return QStringLiteral("macOS will ask for browser Automation access the first time you open "
                          "Claude or ChatGPT.");
#else
    // Nothing asks for permission here: the open tab of Firefox is read from its session
    // file on this machine.
    return QStringLiteral("None on Linux: the open Firefox tab is read from its session file, "
                          "on this machine only.");
#endif
}
