#include "FakeClock.h"
#include "PrivateSessionBus.h"
#include "Sessions.h"

#include "model/AppPreferences.h"
#include "platform/linux/DBusNotificationSink.h"
#include "services/NotificationManager.h"
#include "store/SqliteDefaults.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QTest>

namespace {

struct NotifyCall {
    QString appName, appIcon, summary, body;
    uint replacesId = 0;
    QVariantMap hints;
    uint returnedId = 0;
};

// A notification server for the test: records every Notify call and hands out ids as a real
// server does (a replaced notification keeps its id).
class RecordingNotificationServer : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    QList<NotifyCall> calls;

public slots:
    uint Notify(const QString& appName, uint replacesId, const QString& appIcon,
                const QString& summary, const QString& body, const QStringList&,
                const QVariantMap& hints, int) {
        const uint id = replacesId != 0 ? replacesId : ++m_lastId;
        calls.append({appName, appIcon, summary, body, replacesId, hints, id});
        return id;
    }
    QStringList GetCapabilities() { return {QStringLiteral("body")}; }
    void CloseNotification(uint) {}

private:
    uint m_lastId = 100;
};

// What the sink answers when asked for permission: 1 granted, 0 refused, -1 no answer.
int authorization(DBusNotificationSink& sink) {
    std::optional<bool> granted;
    sink.requestAuthorization([&](bool g) { granted = g; });
    (void)QTest::qWaitFor([&] { return granted.has_value(); }, 10000);
    return granted ? int(*granted) : -1;
}

} // namespace

// The D-Bus notification backend against a private dbus-daemon and a test server on it.
class DBusNotificationsTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { QCOMPARE(m_bus.start(), QString()); }
    void init();
    void cleanup();
    void sameIdentifierReplaces();
    void pendingDigestSurvivesRestart();
    void withoutServerOrBusNothingBreaks();

private:
    DBusNotificationSink::Options fastOptions() const {
        DBusNotificationSink::Options options;
        options.heldMaxWaitMs = 10; // look at the fake clock often
        return options;
    }

    PrivateSessionBus m_bus;
    QDBusConnection m_serverBus{QString()};
    std::unique_ptr<RecordingNotificationServer> m_server;
    std::unique_ptr<SqliteDefaults> m_db;
};

void DBusNotificationsTest::init() {
    m_db = SqliteDefaults::open(QStringLiteral(":memory:"));
    QVERIFY(m_db);
    m_server = std::make_unique<RecordingNotificationServer>();
    m_serverBus = m_bus.connect();
    QVERIFY(m_serverBus.registerObject(DBusNotificationSink::path, m_server.get(),
                                       QDBusConnection::ExportAllSlots));
    QVERIFY(m_serverBus.registerService(DBusNotificationSink::service));
}

void DBusNotificationsTest::cleanup() {
    m_serverBus = QDBusConnection(QString());
    m_bus.disconnectAll();
    m_server.reset();
}

void DBusNotificationsTest::sameIdentifierReplaces() {
    FakeClock clock(local(2026, 5, 30, 10));
    DBusNotificationSink sink(m_bus.connect(), *m_db, clock);
    // Sent back to back: the second waits for the first's id so it can replace it.
    sink.add({"threshold", "first", "You've used 20.0k tokens today.", true, {}});
    sink.add({"threshold", "second", "", true, {}});
    sink.add({"quiet", "other", "", false, {}});
    QTRY_COMPARE(m_server->calls.size(), 3);
    const QList<NotifyCall>& c = m_server->calls;
    QCOMPARE((QStringList{c[0].summary, c[1].summary, c[2].summary}),
             (QStringList{"first", "other", "second"}));
    QCOMPARE((QList<uint>{c[0].replacesId, c[1].replacesId, c[2].replacesId}),
             (QList<uint>{0, 0, c[0].returnedId}));
    QCOMPARE((QStringList{c[0].appName, c[0].appIcon, c[0].body,
                          c[0].hints.value("desktop-entry").toString(),
                          c[0].hints.value("sound-name").toString(),
                          c[0].hints.value("suppress-sound").toString()}),
             (QStringList{"Mindmeter", "mindmeter", "You've used 20.0k tokens today.", "mindmeter",
                          "message-new-instant", ""}));
    QVERIFY(c[1].hints.value("suppress-sound").toBool() && !c[1].hints.contains("sound-name"));
}

void DBusNotificationsTest::pendingDigestSurvivesRestart() {
    FakeClock clock(local(2026, 5, 30, 12, 0));
    m_db->setBool(AppPreferences::proEndOfDayEnabled, true);
    {
        DBusNotificationSink sink(m_bus.connect(), *m_db, clock, fastOptions());
        NotificationManager(sink, *m_db, clock).scheduleEndOfDayDigest(5000);
        QCOMPARE(sink.held().pending().size(), 1);
    } // the app quits
    QVERIFY(m_db->data(HeldNotifications::storageKey));

    DBusNotificationSink restarted(m_bus.connect(), *m_db, clock, fastOptions());
    QCOMPARE(restarted.held().pending().size(), 1);
    clock.set(local(2026, 5, 30, 18, 29).addSecs(59));
    QTest::qWait(100); // many looks at the clock, a second before the digest's time
    QVERIFY(m_server->calls.isEmpty());
    clock.set(local(2026, 5, 30, 18, 30));
    QTRY_COMPARE(m_server->calls.size(), 1);
    QCOMPARE(m_server->calls[0].summary, QStringLiteral("Today: 5.0k tokens"));
    QVERIFY(restarted.held().pending().isEmpty());
}

void DBusNotificationsTest::withoutServerOrBusNothingBreaks() {
    FakeClock clock(local(2026, 5, 30, 10));
    {
        DBusNotificationSink sink(m_bus.connect(), *m_db, clock);
        QCOMPARE(authorization(sink), 1);
    }

    // The server leaves the bus.
    QVERIFY(m_serverBus.unregisterService(DBusNotificationSink::service));
    DBusNotificationSink noServer(m_bus.connect(), *m_db, clock, fastOptions());
    QCOMPARE(authorization(noServer), 0);
    noServer.add({"threshold", "lost", "", true, {}});
    noServer.add({"eod-1", "held", "", true, CalendarTrigger{2026, 5, 30, 10, 1}});
    clock.set(local(2026, 5, 30, 10, 1));
    QTRY_VERIFY(noServer.held().pending().isEmpty()); // delivered into the void
    QVERIFY(m_server->calls.isEmpty());

    // No bus at all.
    QDBusConnection nowhere = m_bus.connectNowhere();
    QVERIFY(!nowhere.isConnected());
    DBusNotificationSink noBus(nowhere, *m_db, clock, fastOptions());
    QCOMPARE(authorization(noBus), 0);
    noBus.add({"eod-2", "kept", "", true, CalendarTrigger{2026, 5, 30, 23, 0}});
    QCOMPARE(noBus.held().pending().size(), 1); // still held for a later start with a bus
    QVERIFY(m_db->data(HeldNotifications::storageKey));
    QVERIFY(m_server->calls.isEmpty());
}

QTEST_GUILESS_MAIN(DBusNotificationsTest)
#include "tst_dbusnotifications.moc"
