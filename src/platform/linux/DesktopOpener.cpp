#include "DesktopOpener.h"

#include <QDesktopServices>

bool DesktopOpener::open(const QUrl& url) {
    return QDesktopServices::openUrl(url);
}
