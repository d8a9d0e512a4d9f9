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
    void hourlyBuckets();
    void rowsSkipGapsEmptyAndUndecodableDays();
    void peakHourUsesThirtyStoredDaysIncludingToday();
    void keptSummaryFollowsTheDay_data();
    void keptSummaryFollowsTheDay();

private:
    // A day whose only session carries `tokens` weighted input tokens at `hour`.
    void storeTokens(const QDate& day, qint64 tokens, int hour = 10, bool utc = false) {
        const QDateTime start(day, QTime(hour, 0), utc ? Qt::UTC : Qt::LocalTime);
        m_db->setData(DayKeys::sessions(DayKeys::dayText(day)),
                      SessionCodec::encodeDay({makeSession(TokenType::input, tokens, start)}));
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

void HistoryTest::hourlyBuckets() {
    const auto hours = [](const QList<HourBucket>& buckets) {
        QList<QPair<int, qint64>> out;
        for (const HourBucket& b : buckets)
            out.append({b.hour, b.tokens});
        return out;
    };
    // Just after midnight the window reaches back into yesterday.
    const QList<HourBucket> b = LoadMetrics::hourlyBuckets(
        {makeSession(TokenType::ai, 4, local(2026, 5, 30, 0, 10))}, local(2026, 5, 30, 0, 30), 3);
    QCOMPARE(hours(b), (QList<QPair<int, qint64>>{{22, 0}, {23, 0}, {0, 10}}));
    QCOMPARE(b[0].label, QString("10 PM"));
    {
        TimeZoneScope tz("America/New_York");
        // 2026-11-01: 1 AM happens twice. At 3:30 EST the window of four hours holds 1 AM twice,
        // both with that clock hour's sum.
        const QDateTime now = QDateTime(QDate(2026, 11, 1), QTime(3, 30));
        const QList<ActivitySession> sessions = {
            makeSession(TokenType::input, 5, now.addSecs(-2 * 3600)), // the second 1 AM (EST)
            makeSession(TokenType::input, 3, now.addSecs(-3 * 3600)), // the first 1 AM (EDT)
        };
        QCOMPARE(hours(LoadMetrics::hourlyBuckets(sessions, now, 4)),
                 (QList<QPair<int, qint64>>{{1, 8}, {1, 8}, {2, 0}, {3, 0}}));
    }
    // Berlin's spring change (2026-03-29): 2 AM never happened. (The history rows across the
    // change are tst_month's.)
    TimeZoneScope tz("Europe/Berlin");
    QCOMPARE(hours(LoadMetrics::hourlyBuckets({}, QDateTime(QDate(2026, 3, 29), QTime(4, 0)), 4)),
             (QList<QPair<int, qint64>>{{0, 0}, {1, 0}, {3, 0}, {4, 0}}));
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
    QStringList got;
    for (const DayRow& row : rows)
        got << row.date.toString(Qt::ISODate) + ' ' + row.label + ' ' + QString::number(row.tokens);
    // Today is net of recovery; every row at the time of day it is now.
    QCOMPARE(got, QStringList({"2026-05-30T10:00:00 Today 18", "2026-05-29T10:00:00 Yest. 50",
                               "2026-05-26T10:00:00 Tue 40", "2026-03-02T10:00:00 Mon 9"}));
    QCOMPARE(store.history().historicalDays, rows);
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

void HistoryTest::keptSummaryFollowsTheDay_data() {
    QTest::addColumn<QString>("change"); // what happens to the file between two runs
    QTest::addColumn<qint64>("tokens");  // yesterday's row then; 0: no row
    QTest::addColumn<int>("peakHour");
    QTest::addColumn<qint64>("decodes"); // by a calculator in a new connection
    // Yesterday holds 10 tokens at 10 AM UTC; its summary is kept by the first run.
    QTest::newRow("unchanged") << "" << qint64(10) << 10 << qint64(0);
    QTest::newRow("rewritten, old summary left") << "rewrite" << qint64(25) << 14 << qint64(1);
    QTest::newRow("removed") << "remove" << qint64(0) << -1 << qint64(0);
    QTest::newRow("damaged summary")
        << "UPDATE derived SET bytes = randomblob(60)" << qint64(10) << 10 << qint64(1);
    QTest::newRow("truncated summary")
        << "UPDATE derived SET bytes = substr(bytes, 1, length(bytes) - 3)" << qint64(10) << 10
        << qint64(1);
    QTest::newRow("file from before summaries were kept")
        << "DROP TABLE derived" << qint64(10) << 10 << qint64(1);
    QTest::newRow("read in another time zone") << "Asia/Tokyo" << qint64(10) << 19 << qint64(1);
}

void HistoryTest::keptSummaryFollowsTheDay() {
    QFETCH(QString, change);
    QFETCH(qint64, tokens);
    QFETCH(int, peakHour);
    QFETCH(qint64, decodes);
    const QString path = m_db->path();
    const QDateTime now = QDateTime(QDate(2026, 5, 30), QTime(10, 0), Qt::UTC);
    const QDate yesterday(2026, 5, 29);
    storeTokens(yesterday, 10, 10, true);
    HistoryCalculator calc(*m_db);
    {
        TimeZoneScope utc("UTC");
        QCOMPARE(calc.compute(now, 0, {}).extendedHistory.size(), 2);
    }
    if (change == "rewrite") {
        storeTokens(yesterday, 25, 14, true);
    } else if (change == "remove") {
        m_db->remove(DayKeys::sessions(DayKeys::dayText(yesterday)));
    } else if (change.startsWith("UPDATE") || change.startsWith("DROP")) { // another program
        sqlite3* raw = nullptr;
        QCOMPARE(sqlite3_open(QFile::encodeName(path).constData(), &raw), SQLITE_OK);
        QCOMPARE(sqlite3_exec(raw, change.toUtf8().constData(), nullptr, nullptr, nullptr),
                 SQLITE_OK);
        sqlite3_close(raw);
    }

    TimeZoneScope second(change.contains('/') ? qPrintable(change) : "UTC");
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

QTEST_GUILESS_MAIN(HistoryTest)
#include "tst_history.moc"
