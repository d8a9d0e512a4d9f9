#include "FakeClock.h"
#include "Sessions.h"
#include "TimeZoneScope.h"

#include "model/AppPreferences.h"
#include "services/NotificationManager.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QTest>
#include <QThread>

namespace {

// Records what the manager asks of the desktop, in order.
class RecordingSink final : public NotificationSink {
public:
    void requestAuthorization(std::function<void(bool)> completion) override { completion(true); }
    void add(const NotificationRequest& request) override {
        calls << QStringLiteral("add ") + request.identifier;
        added << request;
        addedOnThread << QThread::currentThread();
    }
    void removePending(const QStringList& identifiers) override {
        calls << QStringLiteral("remove ") + identifiers.join(u',');
    }
    QStringList calls;
    QList<NotificationRequest> added;
    QList<QThread*> addedOnThread;
};

} // namespace

class NotificationManagerTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void thresholdOncePerLocalDay();
    void temperatureStretchAndCooldown();
    void digestVerdicts();
    void digestReplacedUntilItsTimeThenLeftAlone();
    void storeDrivesThresholdAndDigest();

private:
    std::unique_ptr<SqliteDefaults> m_db;
    RecordingSink m_sink;
};

void NotificationManagerTest::init() {
    m_db = SqliteDefaults::open(QStringLiteral(":memory:"));
    QVERIFY(m_db);
    m_sink = RecordingSink();
}

void NotificationManagerTest::thresholdOncePerLocalDay() {
    FakeClock clock(local(2026, 5, 30, 15));
    NotificationManager manager(m_sink, *m_db, clock);
    manager.checkThreshold(30000);
    QVERIFY(m_sink.added.isEmpty()); // switched off

    m_db->setBool(AppPreferences::proAlertEnabled, true);
    manager.checkThreshold(19999); // unset: 80% of 25000
    QVERIFY(m_sink.added.isEmpty());
    manager.checkThreshold(20000);
    manager.checkThreshold(30000);
    QCOMPARE(m_sink.added.size(), 1);
    QCOMPARE(m_sink.added[0].identifier, QStringLiteral("threshold"));
    QCOMPARE(m_sink.added[0].title, QStringLiteral("Cognitive load at 80%"));
    QVERIFY(!m_sink.added[0].trigger);
    QCOMPARE(m_db->string(AppPreferences::notifThresholdFiredDate), QString("2026-05-30"));

    // The marker is the day's date, so it lapses at local midnight by itself.
    clock.set(local(2026, 5, 31, 0, 1));
    QVERIFY(!manager.thresholdFiredToday());
    m_db->setInteger(AppPreferences::proAlertThreshold, 33);
    m_db->setInteger(AppPreferences::dailyTokenBaseline, 1001);
    manager.checkThreshold(329); // 33% of 1001 is 330.33, truncated to 330
    QCOMPARE(m_sink.added.size(), 1);
    manager.checkThreshold(330);
    QCOMPARE(m_sink.added.size(), 2);
    QCOMPARE(m_sink.added[1].title, QStringLiteral("Cognitive load at 33%"));

    // A marker written by another instance of the app counts too.
    NotificationManager other(m_sink, *m_db, clock);
    other.checkThreshold(25000);
    QCOMPARE(m_sink.added.size(), 2);
}

void NotificationManagerTest::temperatureStretchAndCooldown() {
    TimeZoneScope tz("UTC");
    FakeClock clock(QDateTime(QDate(2024, 11, 15), QTime(9, 0), Qt::UTC));
    NotificationManager manager(m_sink, *m_db, clock);
    m_db->setBool(AppPreferences::proTempAlertEnabled, true);
    m_db->setInteger(AppPreferences::proTempAlertThreshold, 70);
    m_db->setInteger(AppPreferences::proTempAlertMinutes, 20);

    manager.checkTemperature(0.71);
    QCOMPARE(manager.highTempStart(), clock.now());
    clock.advanceSeconds(20 * 60 - 1);
    manager.checkTemperature(0.9);
    QVERIFY(m_sink.added.isEmpty()); // one second short of the stretch

    clock.advanceSeconds(1); // 09:20:00
    manager.checkTemperature(0.9);
    QCOMPARE(m_sink.added.size(), 1);
    const NotificationRequest& r = m_sink.added.first();
    QCOMPARE(r.identifier, QStringLiteral("high-temp-1731662400"));
    QVERIFY(r.body.contains("for 20+ minutes"));
    QVERIFY(!r.trigger);
    QCOMPARE(m_db->real(AppPreferences::notifHighTempFiredTime), 1731662400.0);

    // Still high: the stretch stays open and the alert repeats after each 30-minute cooldown.
    clock.advanceSeconds(30 * 60 - 1);
    manager.checkTemperature(0.9);
    QCOMPARE(m_sink.added.size(), 1);
    clock.advanceSeconds(1);
    manager.checkTemperature(0.9);
    QCOMPARE(m_sink.added.size(), 2);
    QCOMPARE(m_sink.added.last().identifier, QStringLiteral("high-temp-1731664200"));

    // A reading at the threshold (equal is not high), none, or the alert switched off ends the
    // stretch: the next one must last again.
    m_db->setInteger(AppPreferences::proTempAlertMinutes, 1);
    const QList<std::pair<bool, double>> enders = {{true, 0.70}, {true, qQNaN()}, {false, 0.9}};
    for (const auto& [enabled, reading] : enders) {
        manager.checkTemperature(0.9);
        QVERIFY(manager.highTempStart());
        m_db->setBool(AppPreferences::proTempAlertEnabled, enabled);
        manager.checkTemperature(reading);
        QVERIFY(!manager.highTempStart());
    }
    m_db->setBool(AppPreferences::proTempAlertEnabled, true);
    clock.advanceSeconds(30 * 60);
    manager.checkTemperature(0.9);
    QCOMPARE(m_sink.added.size(), 2);
    clock.advanceSeconds(60);
    manager.checkTemperature(0.9);
    QCOMPARE(m_sink.added.size(), 3);
    QVERIFY(m_sink.added.last().body.contains("for 1+ minutes"));
}

void NotificationManagerTest::digestVerdicts() {
    FakeClock clock(local(2026, 5, 30, 12));
    NotificationManager manager(m_sink, *m_db, clock);
    m_db->setBool(AppPreferences::proEndOfDayEnabled, true);
    m_db->setInteger(AppPreferences::dailyTokenBaseline, 1000); // the total in tenths is the %
    QStringList verdicts;
    for (const qint64 total : {0, 399, 400, 699, 700, 899, 900}) {
        manager.scheduleEndOfDayDigest(total);
        verdicts << m_sink.added.last().body.section(u' ', 0, 0);
    }
    QCOMPARE(verdicts, QStringList({"Light", "Light", "Balanced", "Balanced", "Heavy", "Heavy",
                                    "Overloaded"}));
}

void NotificationManagerTest::digestReplacedUntilItsTimeThenLeftAlone() {
    FakeClock clock(local(2026, 5, 30, 18, 0));
    NotificationManager manager(m_sink, *m_db, clock);
    m_db->setBool(AppPreferences::proEndOfDayEnabled, true);
    const QString id = NotificationManager::digestIdentifier(clock.now());
    QVERIFY(id.startsWith("eod-") && id.endsWith(".0"));

    manager.scheduleEndOfDayDigest(1000);
    clock.set(local(2026, 5, 30, 18, 29).addSecs(59));
    manager.scheduleEndOfDayDigest(2000);
    QCOMPARE(m_sink.calls, QStringList({"remove " + id, "add " + id, "remove " + id, "add " + id}));
    QCOMPARE(m_sink.added.last().title, QStringLiteral("Today: 2.0k tokens"));

    // At and after the digest time nothing is scheduled and the pending one stays.
    clock.set(local(2026, 5, 30, 18, 30));
    manager.scheduleEndOfDayDigest(3000);
    clock.set(local(2026, 5, 30, 23, 0));
    manager.scheduleEndOfDayDigest(4000);
    QCOMPARE(m_sink.calls.size(), 4);

    // The next day has its own identifier.
    clock.set(local(2026, 5, 31, 8, 0));
    manager.scheduleEndOfDayDigest(10);
    QVERIFY(m_sink.calls.last() != "add " + id);
    QCOMPARE(m_sink.added.last().trigger, (CalendarTrigger{2026, 5, 31, 18, 30}));
}

void NotificationManagerTest::storeDrivesThresholdAndDigest() {
    FakeClock clock(local(2026, 5, 30, 10));
    m_db->setBool(AppPreferences::proAlertEnabled, true);
    m_db->setBool(AppPreferences::proEndOfDayEnabled, true);
    m_db->setInteger(AppPreferences::dailyTokenBaseline, 100);
    DayStore store(*m_db, clock, DayStore::Options{0});
    store.waitForHistory(); // the computation at creation, before the manager listens
    settle();
    NotificationManager manager(m_sink, *m_db, clock);
    manager.attach(store);

    store.addSession(makeSession(TokenType::reasoning, 30, clock.now())); // 90 of 100
    QTRY_COMPARE(m_sink.added.size(), 2);
    QCOMPARE(m_sink.added.first().identifier, QStringLiteral("threshold"));
    QCOMPARE(m_sink.added.first().title, QStringLiteral("Cognitive load at 80%"));
    // The digest is announced from the store's worker thread and scheduled on this one.
    QCOMPARE(m_sink.added.last().identifier, NotificationManager::digestIdentifier(clock.now()));
    QCOMPARE(m_sink.added.last().title, QStringLiteral("Today: 90 tokens"));
    QCOMPARE(m_sink.added.last().body,
             QStringLiteral("Overloaded day \u2014 make sure to rest and recover tonight."));
    for (QThread* t : std::as_const(m_sink.addedOnThread))
        QCOMPARE(t, QThread::currentThread());
}

QTEST_GUILESS_MAIN(NotificationManagerTest)
#include "tst_notificationmanager.moc"
