// The wall clock and the calendar misbehaving while the sensing loop runs: the clock set back
// and forward, the time zone changed, daylight-saving nights, sleeps over midnight, the turn of a
// year and a leap day. The real monitor and store run in virtual time (VirtualTime); the test keeps
// its own account of the minutes worked on each day and checks every stored day against it, that no
// session is stored twice, and that a restart finds the same day the running store had.

#include "FakeClock.h"
#include "FakeDesktop.h"
#include "Sessions.h"
#include "TimeZoneScope.h"
#include "VirtualTime.h"

#include "model/SessionCodec.h"
#include "sensing/ActivityMonitor.h"
#include "store/DayKeys.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QSet>
#include <QTemporaryDir>
#include <QTest>

namespace {

// The editor earns 8 raw reasoning tokens a minute, 24 weighted. A minute is recorded when it
// ends, on the day in progress then: the minute that ends at midnight is the new day's.
constexpr qint64 perMinute = 24;

} // namespace

class ClockFaultsTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void clockSetBackAnHour();
    void clockSetBackAcrossMidnight();
    void clockSetForwardADay();
    void breakMeasuredAcrossClockChanges_data();
    void breakMeasuredAcrossClockChanges();
    void timeZoneChangeDuringTheDay();
    void daylightSavingNights_data();
    void daylightSavingNights();
    void sleepOverMidnight_data();
    void sleepOverMidnight();
    void yearBoundaryAndLeapDay_data();
    void yearBoundaryAndLeapDay();

private:
    // A monitor and store started at `start` (local time in the zone in force), with the
    // editor in front and the user at the keyboard.
    void startAt(const QDateTime& start);
    // Weighted tokens stored under each day, from the database itself.
    QMap<QString, qint64> storedTotals() const;
    // Every stored session once: no id in two places, and the store in memory equal to its
    // stored day and to what a restart loads.
    void checkConsistent();

    QTemporaryDir m_dir;
    std::unique_ptr<SqliteDefaults> m_db;
    std::unique_ptr<FakeClock> m_clock;
    std::unique_ptr<DayStore> m_store;
    FakeWorkspace m_workspace;
    FakeIdleSource m_idle;
    std::unique_ptr<ActivityMonitor> m_monitor;
    std::unique_ptr<VirtualTime> m_time;
};

void ClockFaultsTest::init() {
    m_db = SqliteDefaults::open(m_dir.filePath(QUuid::createUuid().toString() + ".sqlite3"));
    QVERIFY(m_db);
}

void ClockFaultsTest::cleanup() {
    m_time.reset();
    m_monitor.reset();
    m_store.reset();
    m_db.reset();
}

void ClockFaultsTest::startAt(const QDateTime& start) {
    m_clock = std::make_unique<FakeClock>(start);
    m_store = std::make_unique<DayStore>(*m_db, *m_clock);
    m_workspace.front = app("com.microsoft.VSCode", "Code");
    m_idle.seconds = 0;
    ActivityMonitor::Options options;
    options.tickIntervalMs = 3600 * 1000; // ticks come from VirtualTime only
    options.claudeProcessRunning = [] { return false; };
    m_monitor = std::make_unique<ActivityMonitor>(
        *m_store, m_workspace, m_idle, *m_db, *m_clock, [] { return 1.0; }, options);
    m_monitor->start();
    m_time = std::make_unique<VirtualTime>(*m_clock, *m_store);
    m_time->addTicker(m_monitor.get());
}

QMap<QString, qint64> ClockFaultsTest::storedTotals() const {
    QMap<QString, qint64> totals;
    for (const QString& key : m_db->keys()) {
        if (!key.startsWith("mindmeter.sessions."))
            continue;
        const auto day = SessionCodec::decodeDay(*m_db->data(key));
        qint64 sum = 0;
        for (const ActivitySession& s : *day)
            sum += s.weightedTokens();
        totals.insert(key.mid(int(strlen("mindmeter.sessions."))), sum);
    }
    return totals;
}

void ClockFaultsTest::checkConsistent() {
    QSet<QUuid> ids;
    for (const QString& key : m_db->keys()) {
        if (!key.startsWith("mindmeter.sessions."))
            continue;
        const auto day = SessionCodec::decodeDay(*m_db->data(key));
        QVERIFY(day);
        for (const ActivitySession& s : *day) {
            QVERIFY2(!ids.contains(s.id), qPrintable("stored twice: " + s.id.toString()));
            ids.insert(s.id);
        }
    }
    // A day with nothing recorded yet has nothing stored.
    const auto bytes = m_db->data(DayKeys::sessions(DayKeys::dayText(m_store->day())));
    const auto stored = SessionCodec::decodeDay(bytes.value_or("[]"));
    QVERIFY(stored);
    // Stored: the store's sessions, after any it holds back uncounted (begun before the day).
    QVERIFY(stored->size() >= m_store->sessions().size());
    QCOMPARE(stored->mid(stored->size() - m_store->sessions().size()), m_store->sessions());
    // A restart counts the stored sessions that began at or after the start of the day.
    DayStore restarted(*m_db, *m_clock);
    if (restarted.day() == m_store->day()) {
        QList<ActivitySession> fromStart;
        for (const ActivitySession& s : *stored)
            if (s.startTime.toDateTime() >= restarted.day().startOfDay())
                fromStart.append(s);
        QCOMPARE(restarted.sessions(), fromStart);
    }
}

// --- The wall clock set by hand or by a time server --------------------------------------

void ClockFaultsTest::clockSetBackAnHour() {
    startAt(local(2026, 5, 30, 14));
    m_time->minutes(60);
    m_time->jumpSeconds(-3600); // 15:00 reads 14:00 again
    m_time->minutes(30);
    // Ticks count, not the clock: ninety minutes, all on the one day.
    QCOMPARE(storedTotals(), (QMap<QString, qint64>{{"2026-05-30", 90 * perMinute}}));
    QCOMPARE(m_store->sessions().size(), 90);
    checkConsistent();
}

void ClockFaultsTest::clockSetBackAcrossMidnight() {
    startAt(local(2026, 5, 30, 23, 30));
    m_time->minutes(60); // half an hour on each side of midnight
    QCOMPARE(m_time->midnightFirings(), 1);
    m_time->jumpSeconds(-3600); // 00:30 reads 23:30 of the day before
    m_time->minutes(30);
    // The day in progress keeps its sessions; yesterday is not written over with today's.
    QCOMPARE(storedTotals(), (QMap<QString, qint64>{{"2026-05-30", 29 * perMinute},
                                                    {"2026-05-31", 61 * perMinute}}));
    QCOMPARE(m_store->day(), QDate(2026, 5, 31));
    checkConsistent();
    // The clock catches up and passes the next midnight: the day after begins on time.
    m_time->minutes(24 * 60 + 30);
    QCOMPARE(m_store->day(), QDate(2026, 6, 1));
    QCOMPARE(storedTotals().value("2026-05-31"), (61 + 24 * 60 - 1) * perMinute);
    checkConsistent();
}

void ClockFaultsTest::clockSetForwardADay() {
    startAt(local(2026, 5, 30, 10));
    m_time->minutes(60);
    m_time->jumpSeconds(24 * 3600); // 11:00 on the 30th reads 11:00 on the 31st
    m_time->minutes(30);
    // The new day begins with its first session: no session of the 30th is copied into the
    // 31st, and none recorded on the 31st goes to the 30th.
    QCOMPARE(m_store->day(), QDate(2026, 5, 31));
    QCOMPARE(storedTotals(), (QMap<QString, qint64>{{"2026-05-30", 60 * perMinute},
                                                    {"2026-05-31", 30 * perMinute}}));
    QCOMPARE(m_store->totalWeighted(), 30 * perMinute);
    checkConsistent();
    // The timer armed on the 30th for its midnight fires thirteen hours of running later; it
    // only re-arms.
    m_time->minutes(13 * 60);
    QCOMPARE(m_time->midnightFirings(), 1);
    QCOMPARE(m_store->day(), QDate(2026, 6, 1)); // 11:30 + 13 h on the 31st: past midnight
    checkConsistent();
}

void ClockFaultsTest::breakMeasuredAcrossClockChanges_data() {
    QTest::addColumn<qint64>("jump");
    QTest::addColumn<qint64>("recovered");
    // A twenty-minute break earns (20 - 10) × 30 tokens, whatever the clock did meanwhile.
    QTest::newRow("no change") << qint64(0) << qint64(300);
    QTest::newRow("set back an hour") << qint64(-3600) << qint64(300);
    QTest::newRow("set forward an hour") << qint64(3600) << qint64(300);
    // Recovery goes to the day in progress when the break ends: here a new day, which has
    // earned nothing to give back yet.
    QTest::newRow("set forward a day") << qint64(24 * 3600) << qint64(0);
}

void ClockFaultsTest::breakMeasuredAcrossClockChanges() {
    QFETCH(qint64, jump);
    QFETCH(qint64, recovered);
    startAt(local(2026, 5, 30, 9));
    m_time->minutes(60);
    // The break is detected on the first idle tick; it lasts twenty minutes from there.
    m_idle.seconds = 200;
    m_time->tick();
    m_idle.seconds = 800;
    m_time->minutes(10);
    m_time->jumpSeconds(jump);
    m_idle.seconds = 1400;
    m_time->tick(59);
    m_idle.seconds = 0;
    m_time->tick();
    QCOMPARE(m_store->recoveredTokens(), recovered);
    checkConsistent();
}

// --- Time zones and daylight saving ------------------------------------------------------

void ClockFaultsTest::timeZoneChangeDuringTheDay() {
    std::optional<TimeZoneScope> zone;
    zone.emplace("Europe/Berlin");
    startAt(local(2026, 5, 30, 5, 30)); // 05:30 in Berlin, 23:30 of the day before in New York
    m_time->minutes(60);
    // A flight west: 00:30 in New York, the same date, six hours earlier.
    zone.reset();
    TimeZoneScope newYork("America/New_York");
    m_time->minutes(30);
    QCOMPARE(m_clock->now().toLocalTime().time(), QTime(1, 0));
    QCOMPARE(storedTotals(), (QMap<QString, qint64>{{"2026-05-30", 90 * perMinute}}));
    // The timer armed for Berlin's midnight fires at 18:00 in New York: it only re-arms. The
    // day's first sessions began "yesterday" by New York's clock: a restart does not count
    // them, and keeps them stored.
    m_time->minutes(17 * 60);
    QCOMPARE(m_time->midnightFirings(), 1);
    QCOMPARE(m_store->day(), QDate(2026, 5, 30));
    QCOMPARE(storedTotals().value("2026-05-30"), (90 + 17 * 60) * perMinute);
    checkConsistent();
    // New York's midnight starts the next day.
    m_time->minutes(6 * 60 + 10);
    QCOMPARE(m_store->day(), QDate(2026, 5, 31));
    QCOMPARE(storedTotals(),
             (QMap<QString, qint64>{{"2026-05-30", (90 + 17 * 60 + 6 * 60 - 1) * perMinute},
                                    {"2026-05-31", (10 + 1) * perMinute}}));
    checkConsistent();
}

void ClockFaultsTest::daylightSavingNights_data() {
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QDate>("date");
    QTest::addColumn<int>("hoursInDay");
    QTest::newRow("New York, spring forward")
        << QByteArray("America/New_York") << QDate(2026, 3, 8) << 23;
    QTest::newRow("New York, fall back")
        << QByteArray("America/New_York") << QDate(2026, 11, 1) << 25;
    QTest::newRow("Berlin, fall back") << QByteArray("Europe/Berlin") << QDate(2026, 10, 25) << 25;
}

void ClockFaultsTest::daylightSavingNights() {
    QFETCH(QByteArray, zone);
    QFETCH(QDate, date);
    QFETCH(int, hoursInDay);
    TimeZoneScope tz(zone.constData());
    // Working through the whole night, from the evening before to the morning after.
    startAt(QDateTime(date.addDays(-1), QTime(22, 0)));
    m_time->minutes(2 * 60); // to midnight
    QCOMPARE(m_store->day(), date);
    m_time->minutes(hoursInDay * 60); // every real hour of the short or long day
    QCOMPARE(m_store->day(), date.addDays(1));
    QCOMPARE(m_time->midnightFirings(), 2);
    const QMap<QString, qint64> totals = storedTotals();
    QCOMPARE(totals.value(DayKeys::dayText(date.addDays(-1))), (2 * 60 - 1) * perMinute);
    QCOMPARE(totals.value(DayKeys::dayText(date)), hoursInDay * 60 * perMinute);
    checkConsistent();
}

// --- Sleeping ----------------------------------------------------------------------------

void ClockFaultsTest::sleepOverMidnight_data() {
    QTest::addColumn<bool>("wakeSignal");
    QTest::newRow("the desktop says it woke") << true;
    QTest::newRow("no wake signal") << false;
}

void ClockFaultsTest::sleepOverMidnight() {
    QFETCH(bool, wakeSignal);
    startAt(local(2026, 5, 30, 22));
    m_time->minutes(60);
    m_time->sleep(9 * 3600, wakeSignal); // 23:00 to 08:00
    m_idle.seconds = 9 * 3600;           // the first look at the idle time after waking
    m_time->tick();
    m_idle.seconds = 0;
    m_time->minutes(2 * 60); // 08:00 to 10:00
    // The timer, an hour from midnight when the machine slept, would fire at 09:00; the wake
    // signal, or else the first session after waking, begins the new day and re-arms it.
    QCOMPARE(m_time->midnightFirings(), 0);
    QCOMPARE(m_store->day(), QDate(2026, 5, 31));
    // A nine-hour break earns nothing; no minute of the evening or the morning is lost.
    QCOMPARE(m_store->recoveredTokens(), qint64(0));
    QCOMPARE(storedTotals(), (QMap<QString, qint64>{{"2026-05-30", 60 * perMinute},
                                                    {"2026-05-31", 2 * 60 * perMinute}}));
    checkConsistent();
}

// --- The calendar ------------------------------------------------------------------------

void ClockFaultsTest::yearBoundaryAndLeapDay_data() {
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QDateTime>("start");
    QTest::addColumn<qint64>("firstDayMinutes"); // of 90 minutes worked from the start
    const QTime late(23, 30);
    QTest::newRow("New Year's Eve")
        << QByteArray("UTC") << QDateTime(QDate(2026, 12, 31), late) << 29ll;
    QTest::newRow("into a leap day")
        << QByteArray("UTC") << QDateTime(QDate(2028, 2, 28), late) << 29ll;
    QTest::newRow("out of a leap day")
        << QByteArray("UTC") << QDateTime(QDate(2028, 2, 29), late) << 29ll;
    // São Paulo moved its clocks forward at midnight: 4 November 2018 began at 01:00.
    QTest::newRow("a midnight that does not exist")
        << QByteArray("America/Sao_Paulo") << QDateTime(QDate(2018, 11, 3), QTime(23, 0)) << 59ll;
}

void ClockFaultsTest::yearBoundaryAndLeapDay() {
    QFETCH(QByteArray, zone);
    QFETCH(QDateTime, start);
    QFETCH(qint64, firstDayMinutes);
    TimeZoneScope tz(zone.constData());
    const QDate first = start.date(), second = first.addDays(1);
    startAt(QDateTime(first, start.time())); // local time in the zone
    m_time->minutes(90);
    QCOMPARE(m_store->day(), second);
    QCOMPARE(storedTotals(), (QMap<QString, qint64>{
                                 {DayKeys::dayText(first), firstDayMinutes * perMinute},
                                 {DayKeys::dayText(second), (90 - firstDayMinutes) * perMinute}}));
    m_store->waitForHistory();
    const QList<DayRow>& rows = m_store->history().extendedHistory;
    QCOMPARE(rows.size(), 2);
    QCOMPARE(rows[1].date.date(), first);
    QCOMPARE(rows[1].label, QString("Yest."));
    checkConsistent();
}

QTEST_GUILESS_MAIN(ClockFaultsTest)
#include "tst_clockfaults.moc"
