#include "LogindWakeWatcher.h"

#include <QDBusConnection>

LogindWakeWatcher::LogindWakeWatcher(QObject* parent)
    : QObject(parent) {
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return;
    bus.connect(QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"),
                this, SLOT(prepareForSleep(bool)));
}

void LogindWakeWatcher::prepareForSleep(bool sleeping) {
    if (!sleeping)
        emit didWake();
}
