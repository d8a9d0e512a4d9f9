#include "DBusNotificationSink.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QTimer>

namespace {

const QString notificationsInterface = QStringLiteral("org.freedesktop.Notifications");

} // namespace

DBusNotificationSink::DBusNotificationSink(const QDBusConnection& connection, Defaults& defaults,
                                           const Clock& clock, Options options, QObject* parent)
    : QObject(parent)
    , m_connection(connection)
    , m_options(std::move(options))
    , m_held(defaults, clock, m_options.heldMaxWaitMs) {
    connect(&m_held, &HeldNotifications::due, this, &DBusNotificationSink::send);
    // Any sender: a closing that is not the server's only costs one replacement.
    m_connection.connect(QString(), path, notificationsInterface,
                         QStringLiteral("NotificationClosed"), this,
                         SLOT(notificationClosed(uint, uint)));
}

void DBusNotificationSink::requestAuthorization(std::function<void(bool)> completion) {
    if (!m_connection.isConnected()) {
        QTimer::singleShot(0, this, [completion] { completion(false); });
        return;
    }
    // The protocol has no permission step: a server that answers will show what is sent.
    const QDBusMessage call = QDBusMessage::createMethodCall(service, path, notificationsInterface,
                                                             QStringLiteral("GetCapabilities"));
    auto* watcher =
        new QDBusPendingCallWatcher(m_connection.asyncCall(call, m_options.callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [completion](QDBusPendingCallWatcher* w) {
                w->deleteLater();
                completion(!w->isError());
            });
}

void DBusNotificationSink::add(const NotificationRequest& request) {
    if (request.trigger) {
        m_held.hold(request);
        return;
    }
    send(request);
}

void DBusNotificationSink::removePending(const QStringList& identifiers) {
    m_held.remove(identifiers);
}

void DBusNotificationSink::send(const NotificationRequest& request) {
    if (!m_connection.isConnected())
        return;
    if (m_sending.contains(request.identifier)) {
        m_queued.insert(request.identifier, request); // the latest one wins
        return;
    }
    QVariantMap hints{{QStringLiteral("desktop-entry"), m_options.desktopEntry}};
    if (request.sound)
        hints.insert(QStringLiteral("sound-name"), QStringLiteral("message-new-instant"));
    else
        hints.insert(QStringLiteral("suppress-sound"), true);
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, notificationsInterface,
                                                       QStringLiteral("Notify"));
    call << m_options.appName << m_shown.value(request.identifier, 0u) << m_options.appIcon
         << request.title << request.body << QStringList() << hints << -1;

    const QString identifier = request.identifier;
    m_sending.insert(identifier);
    auto* watcher =
        new QDBusPendingCallWatcher(m_connection.asyncCall(call, m_options.callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, identifier](QDBusPendingCallWatcher* w) {
                w->deleteLater();
                const QDBusPendingReply<uint> reply = *w;
                if (!reply.isError() && reply.argumentAt<0>() != 0)
                    m_shown.insert(identifier, reply.argumentAt<0>());
                m_sending.remove(identifier);
                if (m_queued.contains(identifier))
                    send(m_queued.take(identifier));
            });
}

void DBusNotificationSink::notificationClosed(uint id, uint) {
    for (auto it = m_shown.begin(); it != m_shown.end();) {
        if (it.value() == id)
            it = m_shown.erase(it);
        else
            ++it;
    }
}
