#pragma once

#include "HeldNotifications.h"

#include "platform/NotificationSink.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QSet>

// Notifications through the desktop's notification server, org.freedesktop.Notifications on
// the session bus.
//
// Each notification is sent as from "Mindmeter" with the app's icon. Requests with a calendar
// trigger are held (and persisted) by HeldNotifications and sent when their time comes. The
// server's id of the last notification sent under each identifier is remembered, so a later
// request with the same identifier replaces it on screen (replaces_id) until the server says
// it was closed. Without a bus or a server nothing is shown and nothing fails: every call is
// asynchronous and its errors are dropped.
class DBusNotificationSink : public QObject, public NotificationSink {
    Q_OBJECT
public:
    inline static const QString service = QStringLiteral("org.freedesktop.Notifications");
    inline static const QString path = QStringLiteral("/org/freedesktop/Notifications");

    struct Options {
        QString appName = QStringLiteral("Mindmeter");
        // An icon-theme name (installed with the app) or an absolute file path.
        QString appIcon = QStringLiteral("mindmeter");
        // The desktop entry that names the app, without ".desktop".
        QString desktopEntry = QStringLiteral("mindmeter");
        int heldMaxWaitMs = 60000;
        int callTimeoutMs = 5000;
    };

    DBusNotificationSink(const QDBusConnection& connection, Defaults& defaults, const Clock& clock,
                         Options options, QObject* parent = nullptr);
    DBusNotificationSink(const QDBusConnection& connection, Defaults& defaults, const Clock& clock,
                         QObject* parent = nullptr)
        : DBusNotificationSink(connection, defaults, clock, Options{}, parent) {}

    // Granted when a notification server answers.
    void requestAuthorization(std::function<void(bool granted)> completion) override;
    void add(const NotificationRequest& request) override;
    void removePending(const QStringList& identifiers) override;

    const HeldNotifications& held() const { return m_held; }

private slots:
    void notificationClosed(uint id, uint reason);

private:
    void send(const NotificationRequest& request);

    QDBusConnection m_connection;
    Options m_options;
    HeldNotifications m_held;
    // Identifier → the server's id of the notification last shown under it.
    QHash<QString, uint> m_shown;
    // Identifiers with a Notify call under way, and the request to send once it answers, so
    // the follow-up knows which notification to replace.
    QSet<QString> m_sending;
    QHash<QString, NotificationRequest> m_queued;
};
