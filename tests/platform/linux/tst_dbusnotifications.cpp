#include "FakeClock.h"
#include "PrivateSessionBus.h"
#include "Sessions.h"

#include "model/AppPreferences.h"
#include "platform/linux/DBusNotificationSink.h"
#include "services/NotificationManager.h"
#include "store/SqliteDefaults.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

struct NotifyCall {
    QString appName;
    uint replacesId = 0;
    QString appIcon;
    QString summary;
    QString body;
    QStringList actions;
    QVariantMap hints;
    int expireTimeout = 0;
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
                const QString& summary, const QString& body, const QStringList& actions,
                const QVariantMap& hints, int expireTimeout) {
        const uint id = replacesId != 0 ? replacesId : ++m_lastId;
        calls.append(
            {appName, replacesId, appIcon, summary, body, actions, hints, expireTimeout, id});
        return id;
    }
    QStringList GetCapabilities() { return {QStringLiteral("body")}; }
    void CloseNotification(uint) {}

private:
    uint m_lastId = 100;
};

} // namespace

// The D-Bus notification backend against a private dbus-daemon and a test server on it.
class DBusNotificationsTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void notifyCarriesAppNameIconAndTexts();
    void sameIdentifierReplacesUntilClosed();
    void pendingDigestSurvivesRestart();
    void withoutServerOrBusNothingBreaks();

private:
    QDBusConnection connect(const QString& address = {});
    DBusNotificationSink::Options fastOptions() const;

    QTemporaryDir m_dir;
    PrivateSessionBus m_bus;
    QStringList m_connectionNames;
    std::unique_ptr<RecordingNotificationServer> m_server;
    std::unique_ptr<SqliteDefaults> m_db;
};

void DBusNotificationsTest::initTestCase() {
    QCOMPARE(m_bus.start(), QString());
}

QDBusConnection DBusNotificationsTest::connect(const QString& address) {
    const QString name = QStringLiteral("test-%1").arg(m_connectionNames.size());
    m_connectionNames << name;
    return QDBusConnection::connectToBus(address.isEmpty() ? m_bus.address() : address, name);
}

DBusNotificationSink::Options DBusNotificationsTest::fastOptions() const {
    DBusNotificationSink::Options options;
    options.heldMaxWaitMs = 10; // look at the fake clock often
    return options;
}

void DBusNotificationsTest::init() {
    m_db = SqliteDefaults::open(QStringLiteral(":memory:"));
    QVERIFY(m_db);
    m_server = std::make_unique<RecordingNotificationServer>();
    QDBusConnection serverBus = connect();
    QVERIFY(serverBus.isConnected());
    QVERIFY(serverBus.registerObject(DBusNotificationSink::path, m_server.get(),
                                     QDBusConnection::ExportAllSlots));
    QVERIFY(serverBus.registerService(DBusNotificationSink::service));
}

void DBusNotificationsTest::cleanup() {
    for (const QString& name : std::as_const(m_connectionNames))
        QDBusConnection::disconnectFromBus(name);
    m_connectionNames.clear();
    m_server.reset();
}

void DBusNotificationsTest::notifyCarriesAppNameIconAndTexts() {
    FakeClock clock(local(2026, 5, 30, 10));
    DBusNotificationSink sink(connect(), *m_db, clock);
    sink.add({"threshold", "Cognitive load at 80%", "You've used 20.0k tokens today.", true, {}});
    sink.add({"quiet", "Silent", "No sound", false, {}});
    QTRY_COMPARE(m_server->calls.size(), 2);
    const NotifyCall& c = m_server->calls[0];
    QCOMPARE(c.appName, QStringLiteral("Mindmeter"));
    QCOMPARE(c.appIcon, QStringLiteral("mindmeter"));
    QCOMPARE(c.body, QStringLiteral("You've used 20.0k tokens today."));
    QCOMPARE(c.hints.value("desktop-entry").toString(), QStringLiteral("mindmeter"));
    QCOMPARE(c.hints.value("sound-name").toString(), QStringLiteral("message-new-instant"));
    QVERIFY(!c.hints.contains("suppress-sound"));
    QCOMPARE(m_server->calls[1].hints.value("suppress-sound").toBool(), true);
    QVERIFY(!m_server->calls[1].hints.contains("sound-name"));
}

void DBusNotificationsTest::sameIdentifierReplacesUntilClosed() {
    FakeClock clock(local(2026, 5, 30, 10));
    QDBusConnection bus = connect();
    DBusNotificationSink sink(bus, *m_db, clock);
    // Sent back to back: the second waits for the first's id so it can replace it.
    sink.add({"threshold", "first", "", true, {}});
    sink.add({"threshold", "second", "", true, {}});
    sink.add({"high-temp-1", "other", "", true, {}});
    QTRY_COMPARE(m_server->calls.size(), 3);
    QCOMPARE(m_server->calls[0].summary, QStringLiteral("first"));
    QCOMPARE(m_server->calls[0].replacesId, 0u);
    QCOMPARE(m_server->calls[1].summary, QStringLiteral("other"));
    QCOMPARE(m_server->calls[1].replacesId, 0u);
    QCOMPARE(m_server->calls[2].summary, QStringLiteral("second"));
    QCOMPARE(m_server->calls[2].replacesId, m_server->calls[0].returnedId);

    // Once the server reports the notification closed, the next one is a new notification.
    QDBusMessage closed =
        QDBusMessage::createSignal(DBusNotificationSink::path, DBusNotificationSink::service,
                                   QStringLiteral("NotificationClosed"));
    closed << m_server->calls[0].returnedId << 2u;
    QVERIFY(QDBusConnection(m_connectionNames.first()).send(closed));
    // A round trip to the same server after it: the closing has been handled once it answers.
    std::optional<bool> answered;
    sink.requestAuthorization([&](bool granted) { answered = granted; });
    QTRY_VERIFY(answered.has_value());
    sink.add({"threshold", "third", "", true, {}});
    QTRY_COMPARE(m_server->calls.size(), 4);
    QCOMPARE(m_server->calls[3].replacesId, 0u);
    QVERIFY(m_server->calls[3].returnedId != m_server->calls[0].returnedId);
}

void DBusNotificationsTest::pendingDigestSurvivesRestart() {
    FakeClock clock(local(2026, 5, 30, 12, 0));
    m_db->setBool(AppPreferences::proEndOfDayEnabled, true);
    {
        DBusNotificationSink sink(connect(), *m_db, clock, fastOptions());
        NotificationManager(sink, *m_db, clock).scheduleEndOfDayDigest(5000);
        QCOMPARE(sink.held().pending().size(), 1);
    } // the app quits
    QVERIFY(m_db->data(HeldNotifications::storageKey));

    DBusNotificationSink restarted(connect(), *m_db, clock, fastOptions());
    QCOMPARE(restarted.held().pending().size(), 1);
    clock.set(local(2026, 5, 30, 18, 29).addSecs(59));
    QTest::qWait(100); // many looks at the clock, a second before the digest's time
    QVERIFY(m_server->calls.isEmpty());
    clock.set(local(2026, 5, 30, 18, 30));
    QTRY_COMPARE(m_server->calls.size(), 1);
    QCOMPARE(m_server->calls[0].summary, QStringLiteral("Today: 5.0k tokens"));
    QVERIFY(restarted.held().pending().isEmpty());

    // Started after the time: today's late digest is shown at once, yesterday's is dropped,
    // and what cannot be read is ignored.
    m_db->setData(HeldNotifications::storageKey,
                  HeldNotifications::encode(
                      {{"eod-today", "late", "", true, CalendarTrigger{2026, 5, 30, 18, 30}},
                       {"eod-yesterday", "stale", "", true, CalendarTrigger{2026, 5, 29, 18, 30}},
                       {"bad", "bad", "", true, CalendarTrigger{2026, 13, 40, 18, 30}}}));
    clock.set(local(2026, 5, 30, 20, 0));
    DBusNotificationSink late(connect(), *m_db, clock, fastOptions());
    QTRY_COMPARE(m_server->calls.size(), 2);
    QCOMPARE(m_server->calls[1].summary, QStringLiteral("late"));
    QTest::qWait(50);
    QCOMPARE(m_server->calls.size(), 2);
    QVERIFY(!m_db->value(HeldNotifications::storageKey).isValid());
}

void DBusNotificationsTest::withoutServerOrBusNothingBreaks() {
    FakeClock clock(local(2026, 5, 30, 10));
    std::optional<bool> granted;
    {
        DBusNotificationSink sink(connect(), *m_db, clock);
        sink.requestAuthorization([&](bool g) { granted = g; });
        QTRY_VERIFY(granted.has_value());
        QVERIFY(*granted);
    }

    // The server leaves the bus.
    QVERIFY(QDBusConnection(m_connectionNames.first())
                .unregisterService(DBusNotificationSink::service));
    DBusNotificationSink noServer(connect(), *m_db, clock, fastOptions());
    granted.reset();
    noServer.requestAuthorization([&](bool g) { granted = g; });
    QTRY_VERIFY(granted.has_value());
    QVERIFY(!*granted);
    noServer.add({"threshold", "lost", "", true, {}});
    noServer.add({"eod-1", "held", "", true, CalendarTrigger{2026, 5, 30, 10, 1}});
    clock.set(local(2026, 5, 30, 10, 1));
    QTRY_VERIFY(noServer.held().pending().isEmpty()); // delivered into the void
    QVERIFY(m_server->calls.isEmpty());

    // No bus at all.
    QDBusConnection nowhere = connect(QStringLiteral("unix:path=") + m_dir.filePath("no-bus"));
    QVERIFY(!nowhere.isConnected());
    DBusNotificationSink noBus(nowhere, *m_db, clock, fastOptions());
    granted.reset();
    noBus.requestAuthorization([&](bool g) { granted = g; });
    QTRY_VERIFY(granted.has_value());
    QVERIFY(!*granted);
    noBus.add({"eod-2", "kept", "", true, CalendarTrigger{2026, 5, 30, 23, 0}});
    QCOMPARE(noBus.held().pending().size(), 1); // still held for a later start with a bus
    QVERIFY(m_db->data(HeldNotifications::storageKey));
    QVERIFY(m_server->calls.isEmpty());
}

QTEST_GUILESS_MAIN(DBusNotificationsTest)
#include "tst_dbusnotifications.moc"
