#include "StatusItemFactory.h"

#include "SniStatusItem.h"
#include "TrayIconStatusItem.h"

#include <QApplication>
#include <QDBusConnectionInterface>

namespace {

void explain(QString* why, const QString& text) {
    if (why)
        *why = text;
}

// Why no StatusNotifierItem: no bus, or no watcher on it.
QString watcherMissing(const QDBusConnection& bus) {
    if (!bus.isConnected()) {
        const QString error = bus.lastError().message();
        return QStringLiteral("no session bus") +
               (error.isEmpty() ? QString() : QStringLiteral(" (") + error + QLatin1Char(')'));
    }
    QDBusConnectionInterface* names = bus.interface();
    if (!names)
        return QStringLiteral("the session bus does not answer");
    const QDBusReply<bool> registered = names->isServiceRegistered(SniStatusItem::watcherService);
    if (!registered.isValid())
        return QStringLiteral("the session bus does not answer: ") + registered.error().message();
    if (!registered.value())
        return QStringLiteral("no %1 on the session bus").arg(SniStatusItem::watcherService);
    return {};
}

} // namespace

std::unique_ptr<StatusItem> createStatusItem(const StatusIconGlyph& glyph, QString* why) {
    return createStatusItem(QDBusConnection::sessionBus(), glyph, why);
}

std::unique_ptr<StatusItem> createStatusItem(const QDBusConnection& sessionBus,
                                             const StatusIconGlyph& glyph, QString* why) {
    const QString noWatcher = watcherMissing(sessionBus);
    if (noWatcher.isEmpty()) {
        explain(why, QStringLiteral("StatusNotifierItem on the session bus"));
        return std::make_unique<SniStatusItem>(sessionBus, glyph);
    }
    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) {
        explain(why, noWatcher + QStringLiteral(", and the tray icon needs a QApplication"));
        return nullptr;
    }
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        explain(why, noWatcher + QStringLiteral(", and no system tray on this display"));
        return nullptr;
    }
    explain(why, QStringLiteral("system tray icon (%1)").arg(noWatcher));
    return std::make_unique<TrayIconStatusItem>(glyph);
}
