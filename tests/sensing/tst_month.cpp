// The real monitor (and for the month the working-mode engine) feeding one day store over a real
// SQLite file, in virtual time (VirtualTime); the test keeps its own account of each day.
//
// A month: thirty working days (six weeks, weekends and nights asleep, a daylight-saving change
// among them), checked against a ledger from the documented rules alone (a minute in an
// application earns its category's rate times its working mode's multiplier, at least 1; a break
// of 10 to 119 minutes gives back 30 tokens a minute beyond the tenth, at most 1,800).
//
// The clock and the calendar misbehaving: set back and forward, the zone changed, daylight-saving
// nights, sleeps over midnight, a year's end and leap days; no session stored twice, and a
// restart finds the day the running store had.

#include "FakeClock.h"
#include "FakeDesktop.h"
#include "Sessions.h"
#include "TimeZoneScope.h"
#include "VirtualTime.h"

#include "model/SessionCodec.h"
#include "sensing/ActivityMonitor.h"
#include "sensing/SessionContextEngine.h"
#include "store/DayKeys.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <map>

namespace {

// The editor earns 8 raw reasoning tokens a minute, 24 weighted. A minute is recorded when it
// ends, on the day in progress then: the minute that ends at midnight is the new day's.
constexpr qint64 perMinute = 24;

struct Application {
    RunningApp app;
    qint64 rate;       // its category's tokens per minute
    double multiplier; // its working mode's
    TokenType type;
};

const Application editor{app("com.microsoft.VSCode", "Code"), 8, 1.4, TokenType::reasoning};
const Application chat{app("com.tinyspeck.slackmacgap", "Slack"), 28, 1.0, TokenType::output};
const Application assistant{app("com.anthropic.claudefordesktop", "Claude"), 50, 1.2,
                            TokenType::ai};
const Application browser{app("org.mozilla.firefox", "Firefox"), 15, 1.0, TokenType::input};
const Application meeting{app("us.zoom.xos", "Zoom"), 22, 1.1, TokenType::input};
const Application notes{app("md.obsidian", "Obsidian"), 32, 1.0, TokenType::output};

// What the rules say one day holds: its sessions as "start type raw", and its sums.
struct ExpectedDay {
    QStringList sessions;
    qint64 gross = 0;
    qint64 recovered = 0;
    qint64 net() const { return std::max<qint64>(gross - recovered, 0); }
};

QString sessionKey(TokenType type, qint64 raw, const Timestamp& start) {
    return QStringLiteral("%1 %2 %3")
        .arg(start.secondsSinceReference, 0, 'f', 3)
        .arg(int(type))
        .arg(raw);
}

} // namespace

class CalendarTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void thirtyWorkingDays();
    void clockAndCalendar_data();
    void clockAndCalendar();
    void breakMeasuredAcrossClockChanges_data();
    void breakMeasuredAcrossClockChanges();
    void sleepOverMidnight_data();
    void sleepOverMidnight();

private:
    // A monitor and store started at `start` (local time in the zone in force), with the
    // editor in front and the user at the keyboard; with the engine, its mode sets the
    // multiplier, else the multiplier is 1.
    void startAt(const QDateTime& start, bool withEngine = false);
    // Weighted tokens stored under each day, from the database itself.
    QMap<QString, qint64> storedTotals() const;
    // Every stored session once: no id in two places, and the store in memory equal to its
    // stored day and to what a restart loads.
    void checkConsistent();

    // The month's script: each step drives the real loop and writes what the rules say into the
    // ledger.
    void tick();
    void stay(const Application& a, qint64 ticks);
    void breakOf(qint64 minutes);
    void leaveForTheNight();
    void workingDay(int d);
    void recordFlush(double seconds);
    void checkStoredDay(const QDate& date);
    void checkHistory();

    QTemporaryDir m_dir;
    std::unique_ptr<SqliteDefaults> m_db;
    std::unique_ptr<FakeClock> m_clock;
    std::unique_ptr<DayStore> m_store;
    FakeWorkspace m_workspace;
    FakeIdleSource m_idle;
    std::unique_ptr<SessionContextEngine> m_engine;
    std::unique_ptr<ActivityMonitor> m_monitor;
    std::unique_ptr<VirtualTime> m_time;

    // The month's ledger.
    std::map<QDate, ExpectedDay> m_days;
    QDate m_today;
    const Application* m_front = nullptr;
    QDateTime m_stayStart;
    double m_accumulated = 0; // seconds, as the monitor counts them
    bool m_away = false;
    qint64 m_awayTicks = 0;
};

void CalendarTest::init() {
    m_db = SqliteDefaults::open(m_dir.filePath(QUuid::createUuid().toString() + ".sqlite3"));
    QVERIFY(m_db);
}

void CalendarTest::cleanup() {
    m_time.reset();
    m_monitor.reset();
    m_engine.reset();
    m_store.reset();
    m_db.reset();
}

void CalendarTest::startAt(const QDateTime& start, bool withEngine) {
    m_clock = std::make_unique<FakeClock>(start);
    m_store = std::make_unique<DayStore>(*m_db, *m_clock);
    m_workspace.front = app("com.microsoft.VSCode", "Code");
    m_idle.seconds = 0;
    constexpr int never = 24 * 3600 * 1000; // every tick comes from VirtualTime
    if (withEngine)
        m_engine =
            std::make_unique<SessionContextEngine>(m_workspace, m_idle, *m_store, *m_db, *m_clock,
                                                   SessionContextEngine::Options{never, 30});
    ActivityMonitor::Options options;
    options.tickIntervalMs = never;
    options.claudeProcessRunning = [] { return false; };
    m_monitor = std::make_unique<ActivityMonitor>(
        *m_store, m_workspace, m_idle, *m_db, *m_clock,
        [engine = m_engine.get()] { return engine ? engine->multiplier() : 1.0; }, options);
    m_monitor->start();
    m_time = std::make_unique<VirtualTime>(*m_clock, *m_store);
    if (m_engine) {
        // The engine ticks before the monitor: the mode it publishes is what the monitor reads.
        m_engine->start();
        m_time->addTicker(m_engine.get());
    }
    m_time->addTicker(m_monitor.get());
}

QMap<QString, qint64> CalendarTest::storedTotals() const {
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

void CalendarTest::checkConsistent() {
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

// --- A month of working days -----------------------------------------------------------

void CalendarTest::recordFlush(double seconds) {
    // A minute, or a part of one of five seconds or more, at the rate times the multiplier,
    // truncated, at least 1, starting when the stay began.
    const double raw = double(m_front->rate) * (seconds / 60.0) * m_front->multiplier;
    const qint64 tokens = std::max<qint64>(qint64(raw), 1);
    ExpectedDay& day = m_days[m_today];
    day.sessions << sessionKey(m_front->type, tokens, Timestamp::fromDateTime(m_stayStart));
    day.gross += *ActivitySession::weighted(tokens, m_front->type);
}

void CalendarTest::tick() {
    if (m_away) {
        if (m_awayTicks++ == 0) { // idle noticed: what was gathered is recorded
            if (m_accumulated >= 5)
                recordFlush(m_accumulated);
            m_accumulated = 0;
        }
    } else {
        m_accumulated += 10;
        if (m_accumulated >= 60) {
            m_accumulated -= 60;
            recordFlush(60);
        }
    }
    m_time->tick();
}

void CalendarTest::stay(const Application& a, qint64 ticks) {
    // A switch closes the previous stay (a part-minute of five seconds or more is recorded)
    // and opens one in the new application.
    if (m_front && !m_away && m_accumulated >= 5)
        recordFlush(m_accumulated);
    m_accumulated = 0;
    m_front = &a;
    m_stayStart = m_clock->now();
    m_workspace.activate(a.app);
    QCoreApplication::sendPostedEvents();
    m_away = false;
    m_idle.seconds = 0;
    for (qint64 t = 0; t < ticks; ++t)
        tick();
}

void CalendarTest::breakOf(qint64 minutes) {
    m_away = true;
    m_awayTicks = 0;
    for (qint64 t = 0; t < minutes * 6; ++t) {
        m_idle.seconds = 181 + double(t) * 10; // past the three-minute time-out
        tick();
    }
    // Back on the next tick: the break lasted from its first idle tick to then.
    const double length = double(minutes * 6 * 10) / 60.0;
    if (length >= 10 && length < 120) {
        ExpectedDay& day = m_days[m_today];
        day.recovered =
            std::min(day.gross, day.recovered + qint64(std::min(length - 10, 60.0) * 30));
    }
    m_idle.seconds = 0;
}

void CalendarTest::leaveForTheNight() {
    m_away = true;
    m_awayTicks = 0;
    m_idle.seconds = 200;
    tick();
    // Asleep until 09:00 of the next working day; the desktop says when it wakes.
    QDate next = m_today.addDays(1);
    while (next.dayOfWeek() > 5)
        next = next.addDays(1);
    m_time->sleep(m_clock->now().secsTo(QDateTime(next, QTime(9, 0))), true);
    m_today = next;
}

void CalendarTest::workingDay(int d) {
    stay(editor, (50 + 5 * (d % 3)) * 6);
    stay(chat, 45); // seven and a half minutes
    breakOf(15);
    stay(assistant, (12 + d % 5) * 6);
    stay(browser, 60);
    breakOf(d % 5 == 4 ? 85 : 45); // lunch; a long one gives back the most there is
    stay(meeting, (30 + 10 * (d % 4)) * 6);
    stay(notes, 20 * 6 + 2); // twenty minutes and twenty seconds
    breakOf(5);
    stay(editor, (60 + (7 * d) % 30) * 6);
}

void CalendarTest::thirtyWorkingDays() {
    // Six weeks from Monday 2 March 2026 in Berlin, over the change to summer time.
    TimeZoneScope berlin("Europe/Berlin");
    m_today = QDate(2026, 3, 2);
    startAt(QDateTime(m_today, QTime(9, 0)), true);
    for (int d = 0; d < 30; ++d) {
        workingDay(d);
        checkStoredDay(m_today);
        if (QTest::currentTestFailed())
            return;
        if (d < 29)
            leaveForTheNight();
    }
    QCOMPARE(m_today, QDate(2026, 4, 10));
    QCOMPARE(m_days.size(), size_t(30));
    QCOMPARE(m_store->grossTokens(), m_days.at(m_today).gross);
    QCOMPARE(m_store->totalWeighted(), m_days.at(m_today).net());
    checkHistory();
}

void CalendarTest::checkStoredDay(const QDate& date) {
    const ExpectedDay& expected = m_days.at(date);
    const QString day = DayKeys::dayText(date);
    const auto stored = SessionCodec::decodeDay(m_db->data(DayKeys::sessions(day)).value_or(""));
    QVERIFY2(stored, qPrintable(day));
    QStringList got;
    for (const ActivitySession& s : *stored)
        got << sessionKey(s.tokenType, s.rawTokens, s.startTime);
    QCOMPARE(got, expected.sessions);
    QCOMPARE(m_db->integer(DayKeys::recovery(day)), expected.recovered);
}

void CalendarTest::checkHistory() {
    m_store->waitForHistory();
    const HistoryResult& h = m_store->history();
    // One row per working day, newest first: today's net total, the others' gross.
    QStringList want, got;
    QList<qint64> totals, week;
    for (auto it = m_days.rbegin(); it != m_days.rend(); ++it) {
        const qint64 offset = it->first.daysTo(m_today);
        const QString label = offset == 0   ? QStringLiteral("Today")
                              : offset == 1 ? QStringLiteral("Yest.")
                                            : QLocale().toString(it->first, QStringLiteral("ddd"));
        totals << (offset == 0 ? it->second.net() : it->second.gross);
        want << QStringLiteral("%1 %2 %3")
                    .arg(DayKeys::dayText(it->first), label)
                    .arg(totals.last());
    }
    for (const DayRow& row : h.extendedHistory)
        got << QStringLiteral("%1 %2 %3")
                   .arg(DayKeys::dayText(row.date.toLocalTime().date()), row.label)
                   .arg(row.tokens);
    QCOMPARE(got, want);
    QCOMPARE(h.extendedHistory.first().isToday, true);
    for (const WeekdayTokens& day : h.weeklyData)
        week.prepend(day.tokens);
    QCOMPARE(week, totals.mid(0, 7));
}

// --- The wall clock set, the zone changed, and the calendar --------------------------------

void CalendarTest::clockAndCalendar_data() {
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QDateTime>("start"); // local time in the zone
    QTest::addColumn<qint64>("before");   // minutes worked before the change
    QTest::addColumn<qint64>("jump");     // seconds the wall clock is set by
    QTest::addColumn<QByteArray>("zoneAfter");
    QTest::addColumn<qint64>("after");               // minutes worked after it
    QTest::addColumn<QList<qint64>>("minutesByDay"); // from the start's date on
    using L = QList<qint64>;
    const QByteArray berlin = "Europe/Berlin", newYork = "America/New_York";
    const QDate may30(2026, 5, 30);
    const auto at = [](QDate d, int h, int m = 0) { return QDateTime(d, QTime(h, m)); };
    // Ticks count, not the clock: ninety minutes, all on the one day.
    QTest::newRow("set back an hour")
        << berlin << at(may30, 14) << 60ll << -3600ll << berlin << 30ll << L{90};
    // The day in progress keeps its sessions; yesterday is not written over with today's, and
    // when the clock catches up the next day begins on time.
    QTest::newRow("set back across midnight") << berlin << at(may30, 23, 30) << 60ll << -3600ll
                                              << berlin << 24 * 60 + 60ll << L{29, 1500, 31};
    // The new day begins with its first session: no session of one day goes to the other.
    QTest::newRow("set forward a day")
        << berlin << at(may30, 10) << 60ll << 24 * 3600ll << berlin << 30ll << L{60, 30};
    // A flight west at 06:30 in Berlin, 00:30 in New York: the same date, six hours earlier.
    // Berlin's midnight passes unnoticed; New York's starts the next day.
    QTest::newRow("time zone changed")
        << berlin << at(may30, 5, 30) << 60ll << 0ll << newYork << 1420ll << L{1469, 11};
    // Working through the night of a daylight-saving change, every real hour of it.
    for (const auto& [tag, zone, date, hours] :
         {std::tuple{"New York, spring forward", newYork, QDate(2026, 3, 8), 23ll},
          {"New York, fall back", newYork, QDate(2026, 11, 1), 25ll},
          {"Berlin, fall back", berlin, QDate(2026, 10, 25), 25ll}})
        QTest::newRow(tag) << zone << at(date.addDays(-1), 22) << (2 + hours) * 60 << 0ll << zone
                           << 0ll << L{119, hours * 60, 1};
    for (const auto& [tag, date] : {std::pair{"New Year's Eve", QDate(2026, 12, 31)},
                                    {"into a leap day", QDate(2028, 2, 28)},
                                    {"out of a leap day", QDate(2028, 2, 29)}})
        QTest::newRow(tag) << QByteArray("UTC") << at(date, 23, 30) << 90ll << 0ll
                           << QByteArray("UTC") << 0ll << L{29, 61};
    // São Paulo moved its clocks forward at midnight: 4 November 2018 began at 01:00.
    QTest::newRow("a midnight that does not exist")
        << QByteArray("America/Sao_Paulo") << at(QDate(2018, 11, 3), 23) << 90ll << 0ll
        << QByteArray("America/Sao_Paulo") << 0ll << L{59, 31};
}

void CalendarTest::clockAndCalendar() {
    QFETCH(QByteArray, zone);
    QFETCH(QDateTime, start);
    QFETCH(qint64, before);
    QFETCH(qint64, jump);
    QFETCH(QByteArray, zoneAfter);
    QFETCH(qint64, after);
    QFETCH(QList<qint64>, minutesByDay);
    {
        TimeZoneScope tz(zone.constData());
        startAt(QDateTime(start.date(), start.time())); // local time in the zone
        m_time->minutes(before);
        m_clock->jumpSeconds(jump); // someone sets the wall clock
    }
    TimeZoneScope tz(zoneAfter.constData());
    m_time->minutes(after);

    QMap<QString, qint64> expected;
    QList<QDate> days;
    for (qsizetype i = 0; i < minutesByDay.size(); ++i) {
        days.prepend(start.date().addDays(i));
        expected.insert(DayKeys::dayText(days.first()), minutesByDay[i] * perMinute);
    }
    QCOMPARE(storedTotals(), expected);
    QCOMPARE(m_store->day(), days.first());
    // The history shows each stored day once, newest first.
    m_store->waitForHistory();
    QList<QDate> rows;
    for (const DayRow& row : m_store->history().extendedHistory)
        rows << row.date.toLocalTime().date();
    QCOMPARE(rows, days);
    checkConsistent();
}

void CalendarTest::breakMeasuredAcrossClockChanges_data() {
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

void CalendarTest::breakMeasuredAcrossClockChanges() {
    QFETCH(qint64, jump);
    QFETCH(qint64, recovered);
    startAt(local(2026, 5, 30, 9));
    m_time->minutes(60);
    // The break is detected on the first idle tick; it lasts twenty minutes from there.
    m_idle.seconds = 200;
    m_time->tick();
    m_idle.seconds = 800;
    m_time->minutes(10);
    m_clock->jumpSeconds(jump); // someone sets the wall clock
    m_idle.seconds = 1400;
    m_time->tick(59);
    m_idle.seconds = 0;
    m_time->tick();
    QCOMPARE(m_store->recoveredTokens(), recovered);
    checkConsistent();
}

// --- Sleeping ----------------------------------------------------------------------------

void CalendarTest::sleepOverMidnight_data() {
    QTest::addColumn<bool>("wakeSignal");
    QTest::newRow("the desktop says it woke") << true;
    QTest::newRow("no wake signal") << false;
}

void CalendarTest::sleepOverMidnight() {
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

QTEST_GUILESS_MAIN(CalendarTest)
#include "tst_month.moc"
