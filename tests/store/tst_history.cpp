#include "FakeClock.h"
#include "Sessions.h"
#include "TimeZoneScope.h"

#include "model/SessionCodec.h"
#include "store/DayKeys.h"
#include "store/DayStore.h"
#include "store/LoadMetrics.h"
#include "store/SqliteDefaults.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sqlite3.h>

class HistoryTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void saturationAndTemperature();
    void bucketsAfterMidnight();
    void bucketsOnDaylightSavingNights();
    void onlyToday();
    void rowsSkipGapsEmptyAndUndecodableDays();
    void weekOverWeek();
    void peakHourUsesThirtyStoredDaysIncludingToday();
    void peakDayOfWeekAverages();
    void pastDaysAreDecodedOnce();
    void keptSummaryFollowsTheDay_data();
    void keptSummaryFollowsTheDay();
    void debounceCoalesces();

private:
    void storeDay(const QDate& day, const QList<ActivitySession>& sessions) {
        m_db->setData(DayKeys::sessions(day.toString(Qt::ISODate)),
                      SessionCodec::encodeDay(sessions));
    }
    // A day whose only session carries `tokens` weighted input tokens at `hour`.
    void storeTokens(const QDate& day, qint64 tokens, int hour = 10) {
        storeDay(day, {makeSession(TokenType::input, tokens, QDateTime(day, QTime(hour, 0)))});
    }

    QTemporaryDir m_dir;
    std::unique_ptr<SqliteDefaults> m_db;
};

void HistoryTest::initTestCase() {
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
}

void HistoryTest::init() {
    m_db = SqliteDefaults::open(m_dir.filePath(QUuid::createUuid().toString() + ".sqlite3"));
    QVERIFY(m_db);
}

void HistoryTest::saturationAndTemperature() {
    using LoadMetrics::temperature;
    QCOMPARE(LoadMetrics::contextSaturation(30000, 25000), 1.0);
    QCOMPARE(LoadMetrics::contextSaturation(12500, 25000), 0.5);
    QCOMPARE(LoadMetrics::contextSaturation(0, 25000), 0.0);
    QCOMPARE(temperature({}), 0.0);
    QCOMPARE(temperature({{TokenType::reasoning, 100}}), 0.0);
    QCOMPARE(temperature({{TokenType::reasoning, 10},
                          {TokenType::output, 10},
                          {TokenType::input, 10},
                          {TokenType::ai, 10}}),
             1.0);
    QCOMPARE(temperature({{TokenType::reasoning, 50}, {TokenType::output, 50}}), 0.5);
    QCOMPARE(temperature({{TokenType::reasoning, 0}, {TokenType::output, 0}}), 0.0);
    // 3:1 split: H = 0.811278..., over 2.
    QVERIFY(qAbs(temperature({{TokenType::reasoning, 75}, {TokenType::ai, 25}}) - 0.4056391) <
            1e-6);

    // Through the store: the budget setting is read, and recovery leaves temperature alone.
    FakeClock clock(local(2026, 5, 30, 10));
    m_db->setInteger("mindmeter.dailyTokenBaseline", 100);
    DayStore store(*m_db, clock);
    store.addSessions({makeSession(TokenType::reasoning, 10, clock.now()),
                       makeSession(TokenType::output, 15, clock.now())});
    settle();
    QCOMPARE(store.contextSaturation(), 0.6);
    QCOMPARE(store.temperature(), 0.5);
    store.recoverTokens(50);
    settle();
    QCOMPARE(store.contextSaturation(), 0.1);
    QCOMPARE(store.temperature(), 0.5);
}

void HistoryTest::bucketsAfterMidnight() {
    const QDateTime now = local(2026, 5, 30, 0, 30);
    const QList<ActivitySession> sessions = {
        makeSession(TokenType::ai, 4, local(2026, 5, 30, 0, 10)),
        makeSession(TokenType::ai, 4, local(2026, 5, 30, 0, 20))};
    const QList<HourBucket> b = LoadMetrics::hourlyBuckets(sessions, now, 8);
    QCOMPARE(b.size(), 8);
    const QList<int> hours = {17, 18, 19, 20, 21, 22, 23, 0};
    for (int i = 0; i < 8; ++i) {
        QCOMPARE(b[i].hour, hours[i]);
        QCOMPARE(b[i].tokens, i == 7 ? qint64(20) : qint64(0));
    }
    QCOMPARE(b[0].label, QString("5 PM"));
    QVERIFY(LoadMetrics::hourlyBuckets(sessions, now, 0).isEmpty());
    QCOMPARE(LoadMetrics::hourlyBuckets(sessions, now, 1).size(), 1);
}

void HistoryTest::bucketsOnDaylightSavingNights() {
    const auto hours = [](const QList<HourBucket>& buckets) {
        QList<QPair<int, qint64>> out;
        for (const HourBucket& b : buckets)
            out.append({b.hour, b.tokens});
        return out;
    };
    {
        TimeZoneScope tz("America/New_York");
        // 2026-11-01: 1 AM happens twice. At 3:30 EST the window of four hours holds 1 AM twice.
        const QDateTime now = QDateTime(QDate(2026, 11, 1), QTime(3, 30));
        const QList<ActivitySession> sessions = {
            makeSession(TokenType::input, 5, now.addSecs(-2 * 3600)), // the second 1 AM (EST)
            makeSession(TokenType::input, 3, now.addSecs(-3 * 3600)), // the first 1 AM (EDT)
        };
        // Both 1 AM entries show that clock hour's sum.
        QCOMPARE(hours(LoadMetrics::hourlyBuckets(sessions, now, 4)),
                 (QList<QPair<int, qint64>>{{1, 8}, {1, 8}, {2, 0}, {3, 0}}));
    }
    // Berlin's spring change (2026-03-29): 2 AM never happened. (The history rows across the
    // change are tst_month's.)
    TimeZoneScope tz("Europe/Berlin");
    QCOMPARE(hours(LoadMetrics::hourlyBuckets({}, QDateTime(QDate(2026, 3, 29), QTime(4, 0)), 4)),
             (QList<QPair<int, qint64>>{{0, 0}, {1, 0}, {3, 0}, {4, 0}}));
}

void HistoryTest::onlyToday() {
    FakeClock clock(local(2026, 5, 30, 10)); // a Saturday
    DayStore store(*m_db, clock);
    store.waitForHistory();
    const HistoryResult& h = store.history();
    QCOMPARE(h.extendedHistory.size(), 1);
    QCOMPARE(h.extendedHistory[0].label, QString("Today"));
    QCOMPARE(h.extendedHistory[0].tokens, qint64(0));
    QVERIFY(h.extendedHistory[0].isToday);
    QCOMPARE(h.weeklyData, (QList<WeekdayTokens>{{"Today", 0, true}}));
    QVERIFY(!h.weekOverWeekData);
    QCOMPARE(h.peakDayOfWeek, std::optional<QString>("Saturday"));
    QVERIFY(!h.peakHourData);
    QCOMPARE(h.cachedHourlyBuckets.size(), 8);
}

void HistoryTest::rowsSkipGapsEmptyAndUndecodableDays() {
    FakeClock clock(local(2026, 5, 30, 10));
    const QDate today = clock.now().date();
    storeTokens(today.addDays(-1), 50);
    storeTokens(today.addDays(-2), 0); // nothing earned: no row
    m_db->setData(DayKeys::sessions(today.addDays(-3).toString(Qt::ISODate)), "{broken");
    storeTokens(today.addDays(-4), 40);
    storeTokens(today.addDays(-89), 9);    // the oldest day looked at
    storeTokens(today.addDays(-90), 1000); // beyond the window
    m_db->setString(DayKeys::sessions(today.addDays(-5).toString(Qt::ISODate)), "[]"); // not data

    DayStore store(*m_db, clock);
    store.addSession(makeSession(TokenType::reasoning, 10, clock.now()));
    store.recoverTokens(12);
    settle();
    store.refreshHistoryNow();
    store.waitForHistory();
    const QList<DayRow>& rows = store.history().extendedHistory;
    QCOMPARE(rows.size(), 4);
    QCOMPARE(rows[0].tokens, qint64(18)); // today is net of recovery
    QCOMPARE(rows[1].label, QString("Yest."));
    QCOMPARE(rows[1].tokens, qint64(50));
    QCOMPARE(rows[2].label, QString("Tue")); // 2026-05-26
    QCOMPARE(rows[2].date.date(), today.addDays(-4));
    QCOMPARE(rows[2].date.time(), QTime(10, 0)); // same time of day as now
    QCOMPARE(rows[3].tokens, qint64(9));
    QCOMPARE(store.history().historicalDays, rows);
    // Oldest first in the week view.
    QCOMPARE(store.history().weeklyData.first().tokens, qint64(9));
    QVERIFY(store.history().weeklyData.last().isToday);
}

void HistoryTest::weekOverWeek() {
    FakeClock clock(local(2026, 5, 30, 10));
    const QDate today = clock.now().date();
    // Eight rows of 100 spread over twelve calendar days: gaps do not break the week.
    for (int offset : {1, 2, 4, 5, 7, 9, 11})
        storeTokens(today.addDays(-offset), 100);
    DayStore store(*m_db, clock);
    store.addSession(makeSession(TokenType::input, 100, clock.now()));
    settle();
    store.refreshHistoryNow();
    store.waitForHistory();
    const auto w = store.history().weekOverWeekData;
    QVERIFY(w);
    QCOMPARE(w->thisWeek, qint64(700));
    QCOMPARE(w->lastWeek, qint64(100));
    QCOMPARE(w->change, 6.0);

    QList<DayRow> rows(7, DayRow{clock.now(), "x", 100, false});
    QVERIFY(!HistoryCalculator::buildWeekOverWeek(rows)); // seven rows: none
    rows.append(DayRow{clock.now(), "x", 0, false});
    QVERIFY(!HistoryCalculator::buildWeekOverWeek(rows)); // last week empty: none
    rows.append(QList<DayRow>(10, DayRow{clock.now(), "x", 20, false}));
    QCOMPARE(HistoryCalculator::buildWeekOverWeek(rows)->lastWeek, qint64(120)); // rows 7-13 only
    QCOMPARE(HistoryCalculator::buildWeekOverWeek(rows)->change, (700.0 - 120.0) / 120.0);
}

void HistoryTest::peakHourUsesThirtyStoredDaysIncludingToday() {
    FakeClock clock(local(2026, 5, 30, 18));
    const QDate today = clock.now().date();
    storeTokens(today.addDays(-1), 100, 9);
    storeTokens(today.addDays(-29), 50, 14);
    storeTokens(today.addDays(-30), 10000, 20); // outside the 30 days
    m_db->setData(DayKeys::sessions(today.addDays(-2).toString(Qt::ISODate)), "junk");
    DayStore store(*m_db, clock);
    store.waitForHistory();
    QCOMPARE(store.history().peakHourData, std::optional<PeakHour>({9, "9 AM"}));

    // Today's stored copy counts: 60 reasoning tokens ×3 at 2 PM outweighs 9 AM.
    store.addSession(makeSession(TokenType::reasoning, 20, local(2026, 5, 30, 14, 5)));
    settle();
    store.waitForHistory();
    QCOMPARE(store.history().peakHourData, std::optional<PeakHour>({14, "2 PM"}));

    // Equal sums: the earliest hour.
    storeTokens(today.addDays(-3), 10, 9); // 9 AM: 110, 2 PM: 110
    store.refreshHistoryNow();
    store.waitForHistory();
    QCOMPARE(store.history().peakHourData->hour, 9);
}

void HistoryTest::peakDayOfWeekAverages() {
    const QDateTime now = local(2026, 5, 30, 10); // Saturday
    auto row = [&](int offset, qint64 tokens) {
        return DayRow{now.addDays(-offset), "x", tokens, offset == 0};
    };
    // Mondays (offsets 5, 12) average 150; the single Friday (offset 1) has 140; Saturday
    // (today, 0 so far, and offset 7 with 250) averages 125.
    const QList<DayRow> rows = {row(0, 0), row(1, 140), row(5, 100), row(7, 250), row(12, 200)};
    QCOMPARE(HistoryCalculator::buildPeakDayOfWeek(rows), std::optional<QString>("Monday"));
    QCOMPARE(HistoryCalculator::buildPeakDayOfWeek({}), std::nullopt);
    // Integer division: 3 and 4 average 3, so the lone 3 ties and the earlier weekday wins.
    const QList<DayRow> tie = {row(0, 3), row(7, 4), row(1, 3)};
    QCOMPARE(HistoryCalculator::buildPeakDayOfWeek(tie), std::optional<QString>("Friday"));
}

void HistoryTest::pastDaysAreDecodedOnce() {
    FakeClock clock(local(2026, 5, 30, 10));
    const QDate today = clock.now().date();
    for (int offset = 1; offset < 120; ++offset)
        storeTokens(today.addDays(-offset), offset);
    HistoryCalculator calc(*m_db);
    const HistoryResult first = calc.compute(clock.now(), 0, {});
    const qint64 coldDecodes = calc.decodedDayCount();
    QCOMPARE(first.extendedHistory.size(), 90);
    QCOMPARE(coldDecodes, qint64(89)); // 89 past days; today is absent and not decoded

    storeDay(today, {makeSession(TokenType::input, 5, clock.now())}); // a minute of work
    const HistoryResult second = calc.compute(clock.now(), 5, {});
    QCOMPARE(calc.decodedDayCount(), coldDecodes + 1); // only today again
    QCOMPARE(second.extendedHistory.mid(1), first.extendedHistory.mid(1));
    QCOMPARE(second.extendedHistory[0].tokens, qint64(5));
}

void HistoryTest::keptSummaryFollowsTheDay_data() {
    QTest::addColumn<QString>("change");  // what happens to the file between two runs
    QTest::addColumn<QByteArray>("zone"); // the second run's time zone
    QTest::addColumn<qint64>("tokens");   // yesterday's row then; 0: no row
    QTest::addColumn<int>("peakHour");
    QTest::addColumn<qint64>("decodes"); // by a calculator in a new connection
    // Yesterday holds 10 tokens at 10 AM UTC; its summary is kept by the first run.
    QTest::newRow("unchanged") << "" << QByteArray("UTC") << qint64(10) << 10 << qint64(0);
    QTest::newRow("rewritten, old summary left")
        << "rewrite" << QByteArray("UTC") << qint64(25) << 14 << qint64(1);
    QTest::newRow("removed") << "remove" << QByteArray("UTC") << qint64(0) << -1 << qint64(0);
    QTest::newRow("damaged summary") << "UPDATE derived SET bytes = randomblob(60)"
                                     << QByteArray("UTC") << qint64(10) << 10 << qint64(1);
    QTest::newRow("truncated summary")
        << "UPDATE derived SET bytes = substr(bytes, 1, length(bytes) - 3)" << QByteArray("UTC")
        << qint64(10) << 10 << qint64(1);
    QTest::newRow("file from before summaries were kept")
        << "DROP TABLE derived" << QByteArray("UTC") << qint64(10) << 10 << qint64(1);
    QTest::newRow("another time zone")
        << "" << QByteArray("Asia/Tokyo") << qint64(10) << 19 << qint64(1);
}

void HistoryTest::keptSummaryFollowsTheDay() {
    QFETCH(QString, change);
    QFETCH(QByteArray, zone);
    QFETCH(qint64, tokens);
    QFETCH(int, peakHour);
    QFETCH(qint64, decodes);
    const QString path = m_db->path();
    const QDateTime now = QDateTime(QDate(2026, 5, 30), QTime(10, 0), Qt::UTC);
    const QDate yesterday(2026, 5, 29);
    auto storeUtc = [&](qint64 raw, int hour) {
        storeDay(yesterday, {makeSession(TokenType::input, raw,
                                         QDateTime(yesterday, QTime(hour, 0), Qt::UTC))});
    };
    storeUtc(10, 10);
    HistoryCalculator calc(*m_db);
    {
        TimeZoneScope utc("UTC");
        QCOMPARE(calc.compute(now, 0, {}).extendedHistory.size(), 2);
    }
    if (change == "rewrite") {
        storeUtc(25, 14);
    } else if (change == "remove") {
        m_db->remove(DayKeys::sessions(DayKeys::dayText(yesterday)));
    } else if (!change.isEmpty()) { // by another program
        sqlite3* raw = nullptr;
        QCOMPARE(sqlite3_open(QFile::encodeName(path).constData(), &raw), SQLITE_OK);
        QCOMPARE(sqlite3_exec(raw, change.toUtf8().constData(), nullptr, nullptr, nullptr),
                 SQLITE_OK);
        sqlite3_close(raw);
    }

    TimeZoneScope second(zone.constData());
    // Twice a calculator over a connection of its own (the first takes the summary again
    // when it must, the second never), then the one that took it first.
    for (int run = 0; run < 3; ++run) {
        std::unique_ptr<SqliteDefaults> db = SqliteDefaults::open(path);
        HistoryCalculator fresh(*db);
        HistoryCalculator& c = run < 2 ? fresh : calc;
        const HistoryResult r = c.compute(now, 0, {});
        QCOMPARE(r.extendedHistory.size(), tokens > 0 ? 2 : 1);
        if (tokens > 0)
            QCOMPARE(r.extendedHistory[1].tokens, tokens);
        QCOMPARE(r.peakHourData ? r.peakHourData->hour : -1, peakHour);
        if (run < 2)
            QCOMPARE(fresh.decodedDayCount(), run == 0 ? decodes : 0);
    }
}

void HistoryTest::debounceCoalesces() {
    FakeClock clock(local(2026, 5, 30, 10));
    DayStore store(*m_db, clock, DayStore::Options{200});
    store.waitForHistory();
    QSignalSpy published(&store, &DayStore::historyPublished);
    QSignalSpy digest(&store, &DayStore::endOfDayDigestRequested);
    for (int i = 0; i < 10; ++i) {
        store.addSession(makeSession(TokenType::input, 1, clock.now()));
        settle();
        QTest::qWait(10);
    }
    QVERIFY(published.wait(2000));
    QTest::qWait(400); // nothing else is on its way
    QCOMPARE(published.count(), 1);
    QCOMPARE(digest.count(), 1);
    QCOMPARE(digest.first().at(0).toLongLong(), qint64(10)); // the latest snapshot
    QCOMPARE(store.history().extendedHistory[0].tokens, qint64(10));
    QCOMPARE(store.history().cachedVelocity, qint64(10));
}

QTEST_GUILESS_MAIN(HistoryTest)
#include "tst_history.moc"
