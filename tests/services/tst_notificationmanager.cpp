#include "DeathTest.h"
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
    void requestAuthorization(std::function<void(bool)> completion) override { completion(grant); }
    void add(const NotificationRequest& request) override {
        calls << QStringLiteral("add ") + request.identifier;
        added << request;
        addedOnThread << QThread::currentThread();
    }
    void removePending(const QStringList& identifiers) override {
        calls << QStringLiteral("remove ") + identifiers.join(u',');
    }
    bool grant = true;
    QStringList calls;
    QList<NotificationRequest> added;
    QList<QThread*> addedOnThread;
};

const QString lightVerdict =
    QStringLiteral("Light day \u2014 plenty of cognitive capacity to spare. Well rested!");
const QString balancedVerdict =
    QStringLiteral("Balanced day \u2014 good mix of depth and breadth.");
const QString heavyVerdict =
    QStringLiteral("Heavy day \u2014 you pushed your context window hard today.");
const QString overloadedVerdict =
    QStringLiteral("Overloaded day \u2014 make sure to rest and recover tonight.");

} // namespace

class NotificationManagerTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void thresholdAtAndBelow_data();
    void thresholdAtAndBelow();
    void thresholdOncePerLocalDay();
    void temperatureStretchAndCooldown();
    void temperatureAtThresholdOrSwitchedOffClearsStretch();
    void newDayForgetsYesterdaysAlert();
    void digestVerdicts_data();
    void digestVerdicts();
    void digestReplacedUntilItsTimeThenLeftAlone();
    void storeDrivesThresholdAndDigest();
    void unrepresentableSettingsStopTheProcess();

private:
    std::unique_ptr<SqliteDefaults> m_db;
    RecordingSink m_sink;
};

void NotificationManagerTest::init() {
    m_db = SqliteDefaults::open(QStringLiteral(":memory:"));
    QVERIFY(m_db);
    m_sink = RecordingSink();
}

void NotificationManagerTest::thresholdAtAndBelow_data() {
    QTest::addColumn<qint64>("percent");
    QTest::addColumn<qint64>("baseline");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<bool>("fires");
    QTest::newRow("exactly at 80% of 25000")
        << qint64(80) << qint64(25000) << qint64(20000) << true;
    QTest::newRow("one below") << qint64(80) << qint64(25000) << qint64(19999) << false;
    QTest::newRow("above") << qint64(80) << qint64(25000) << qint64(20300) << true;
    // 33% of 1001 is 330.33: truncated to 330.
    QTest::newRow("fraction truncated") << qint64(33) << qint64(1001) << qint64(330) << true;
    QTest::newRow("defaults when unset") << qint64(0) << qint64(0) << qint64(20000) << true;
}

void NotificationManagerTest::thresholdAtAndBelow() {
    QFETCH(qint64, percent);
    QFETCH(qint64, baseline);
    QFETCH(qint64, total);
    QFETCH(bool, fires);
    FakeClock clock(local(2026, 5, 30, 15));
    NotificationManager manager(m_sink, *m_db, clock);
    if (percent)
        m_db->setInteger(AppPreferences::proAlertThreshold, percent);
    if (baseline)
        m_db->setInteger(AppPreferences::dailyTokenBaseline, baseline);

    manager.checkThreshold(total * 2);
    QVERIFY(m_sink.added.isEmpty()); // switched off

    m_db->setBool(AppPreferences::proAlertEnabled, true);
    manager.checkThreshold(total);
    QCOMPARE(m_sink.added.size(), fires ? 1 : 0);
    QCOMPARE(manager.thresholdFiredToday(), fires);
    if (!fires)
        return;
    const NotificationRequest& r = m_sink.added.first();
    QCOMPARE(r.identifier, QStringLiteral("threshold"));
    QCOMPARE(r.title, QStringLiteral("Cognitive load at %1%").arg(percent ? percent : 80));
    QVERIFY(!r.trigger);
}

void NotificationManagerTest::thresholdOncePerLocalDay() {
    FakeClock clock(local(2026, 5, 30, 15));
    NotificationManager manager(m_sink, *m_db, clock);
    m_db->setBool(AppPreferences::proAlertEnabled, true);

    manager.checkThreshold(21000);
    manager.checkThreshold(30000);
    QCOMPARE(m_sink.added.size(), 1);
    QCOMPARE(m_db->string(AppPreferences::notifThresholdFiredDate), QString("2026-05-30"));

    // The marker is the day's date, so it lapses at local midnight by itself.
    clock.set(local(2026, 5, 31, 0, 1));
    QVERIFY(!manager.thresholdFiredToday());
    manager.checkThreshold(100);
    QCOMPARE(m_sink.added.size(), 1);
    manager.checkThreshold(20000);
    QCOMPARE(m_sink.added.size(), 2);

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

    // A reading at or below the threshold ends the stretch: the next one must last again.
    m_db->setInteger(AppPreferences::proTempAlertMinutes, 1);
    manager.checkTemperature(0.5);
    clock.advanceSeconds(30 * 60);
    manager.checkTemperature(0.9);
    QCOMPARE(m_sink.added.size(), 2);
    clock.advanceSeconds(60);
    manager.checkTemperature(0.9);
    QCOMPARE(m_sink.added.size(), 3);
    QVERIFY(m_sink.added.last().body.contains("for 1+ minutes"));
}

void NotificationManagerTest::temperatureAtThresholdOrSwitchedOffClearsStretch() {
    FakeClock clock(local(2026, 5, 30, 9));
    NotificationManager manager(m_sink, *m_db, clock);
    m_db->setBool(AppPreferences::proTempAlertEnabled, true);
    m_db->setInteger(AppPreferences::proTempAlertThreshold, 70);

    manager.checkTemperature(0.8);
    QVERIFY(manager.highTempStart());
    manager.checkTemperature(0.70); // equal is not high
    QVERIFY(!manager.highTempStart());
    manager.checkTemperature(qQNaN());
    QVERIFY(!manager.highTempStart());
    manager.checkTemperature(0.8);
    m_db->setBool(AppPreferences::proTempAlertEnabled, false);
    manager.checkTemperature(0.8);
    QVERIFY(!manager.highTempStart());
}

void NotificationManagerTest::newDayForgetsYesterdaysAlert() {
    FakeClock clock(local(2026, 5, 30, 23, 50));
    NotificationManager manager(m_sink, *m_db, clock);
    m_db->setBool(AppPreferences::proTempAlertEnabled, true);
    m_db->setInteger(AppPreferences::proTempAlertMinutes, 1);
    manager.checkTemperature(0.95);
    clock.advanceSeconds(60);
    manager.checkTemperature(0.95);
    QCOMPARE(m_sink.added.size(), 1);

    // Ten minutes later it is a new day: marker and stretch are gone, so a fresh stretch may
    // fire within 30 minutes of yesterday's alert.
    clock.set(local(2026, 5, 31, 0, 1));
    manager.checkTemperature(0.95);
    QVERIFY(!m_db->value(AppPreferences::notifHighTempFiredTime).isValid());
    QCOMPARE(manager.highTempStart(), clock.now());
    clock.advanceSeconds(60);
    manager.checkTemperature(0.95);
    QCOMPARE(m_sink.added.size(), 2);
}

void NotificationManagerTest::digestVerdicts_data() {
    QTest::addColumn<qint64>("total");
    QTest::addColumn<QString>("verdict");
    // Baseline 1000, so the total in tenths is the percentage.
    for (const auto& [total, verdict] :
         std::initializer_list<std::pair<qint64, QString>>{{0, lightVerdict},
                                                           {399, lightVerdict},
                                                           {400, balancedVerdict},
                                                           {699, balancedVerdict},
                                                           {700, heavyVerdict},
                                                           {899, heavyVerdict},
                                                           {900, overloadedVerdict},
                                                           {2500, overloadedVerdict}})
        QTest::newRow(qPrintable(QString::number(total / 10.0) + "%")) << total << verdict;
}

void NotificationManagerTest::digestVerdicts() {
    QFETCH(qint64, total);
    QFETCH(QString, verdict);
    FakeClock clock(local(2026, 5, 30, 12));
    NotificationManager manager(m_sink, *m_db, clock);
    m_db->setBool(AppPreferences::proEndOfDayEnabled, true);
    m_db->setInteger(AppPreferences::dailyTokenBaseline, 1000);
    manager.scheduleEndOfDayDigest(total);
    QCOMPARE(m_sink.added.size(), 1);
    QCOMPARE(m_sink.added.first().body, verdict);
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

    // A time of day that names no minute of today schedules nothing.
    clock.set(local(2026, 5, 31, 8, 0));
    m_db->setReal(AppPreferences::proEndOfDayTime, 90000.0); // 25:00
    manager.scheduleEndOfDayDigest(10);
    QCOMPARE(m_sink.calls.size(), 4);

    // The next day has its own identifier.
    m_db->remove(AppPreferences::proEndOfDayTime);
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
    QCOMPARE(m_sink.added.last().body, overloadedVerdict);
    for (QThread* t : std::as_const(m_sink.addedOnThread))
        QCOMPARE(t, QThread::currentThread());
}

void NotificationManagerTest::unrepresentableSettingsStopTheProcess() {
    FakeClock clock(local(2026, 5, 30, 10));
    NotificationManager manager(m_sink, *m_db, clock);
    m_db->setBool(AppPreferences::proTempAlertEnabled, true);
    m_db->setBool(AppPreferences::proEndOfDayEnabled, true);
    m_db->setBool(AppPreferences::proAlertEnabled, true);
    QVERIFY(abortsProcess([&] {
        m_db->setInteger(AppPreferences::proTempAlertMinutes, qint64(1) << 62);
        manager.checkTemperature(0.99);
    }));
    QVERIFY(abortsProcess([&] {
        m_db->setReal(AppPreferences::proEndOfDayTime, 1e300);
        manager.scheduleEndOfDayDigest(1);
    }));
    // In range, the same calls return.
    manager.checkTemperature(0.99);
    manager.scheduleEndOfDayDigest(1);
    manager.checkThreshold(1);
    QCOMPARE(m_sink.added.size(), 1); // the digest
}

QTEST_GUILESS_MAIN(NotificationManagerTest)
#include "tst_notificationmanager.moc"
