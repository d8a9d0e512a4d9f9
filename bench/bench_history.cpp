// History and ledger costs over a year of data: 365 stored days of 400 sessions each.
//
//   build/bench/bench_history [DAYS] [SESSIONS_PER_DAY]
//
// Prints the median and the slowest of repeated runs for: a cold history computation
// (nothing decoded yet), a warm one (after one computation, with one more session added to
// today), and DayStore::addSession including the write of the whole day.

#include "model/SessionCodec.h"
#include "platform/Clock.h"
#include "store/DayKeys.h"
#include "store/DayStore.h"
#include "store/HistoryCalculator.h"
#include "store/SqliteDefaults.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

namespace {

class FixedClock final : public Clock {
public:
    explicit FixedClock(QDateTime t)
        : m_t(std::move(t)) {}
    QDateTime now() const override { return m_t; }

private:
    QDateTime m_t;
};

QList<ActivitySession> makeDay(const QDate& date, int count) {
    static const char* const apps[] = {"com.microsoft.VSCode", "com.apple.Terminal",
                                       "com.tinyspeck.slackmacgap", "com.google.Chrome", "claude"};
    static const TokenType types[] = {TokenType::reasoning, TokenType::reasoning, TokenType::output,
                                      TokenType::input, TokenType::ai};
    QList<ActivitySession> day;
    day.reserve(count);
    const QDateTime start(date, QTime(8, 0));
    for (int i = 0; i < count; ++i) {
        const Timestamp t = Timestamp::fromDateTime(start.addSecs(qint64(i) * 90));
        const int k = i % 5;
        day.append({QUuid::createUuid(), QString::fromLatin1(apps[k]), QStringLiteral("App"),
                    types[k], t, t.addSeconds(60), 8 + i % 40});
    }
    return day;
}

struct Stats {
    double median;
    double p95;
    double worst;
};

Stats stats(QList<double> ms) {
    std::sort(ms.begin(), ms.end());
    return {ms[ms.size() / 2], ms[ms.size() * 95 / 100], ms.last()};
}

long residentKiB() {
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : f.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    return -1;
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    const int days = argc > 1 ? std::atoi(argv[1]) : 365;
    const int perDay = argc > 2 ? std::atoi(argv[2]) : 400;

    QTemporaryDir dir;
    auto db = SqliteDefaults::open(dir.filePath(QStringLiteral("bench.sqlite3")));
    const FixedClock clock(QDateTime(QDate(2026, 5, 30), QTime(17, 0)));
    const QDate today = clock.now().date();

    QElapsedTimer fill;
    fill.start();
    for (int i = 0; i < days; ++i) {
        const QDate d = today.addDays(-i);
        db->setData(DayKeys::sessions(d.toString(Qt::ISODate)),
                    SessionCodec::encodeDay(makeDay(d, perDay)));
    }
    std::printf("store: %d days x %d sessions, filled in %.0f ms, file %.1f MiB\n", days, perDay,
                double(fill.elapsed()),
                double(QFileInfo(dir.filePath(QStringLiteral("bench.sqlite3"))).size() +
                       QFileInfo(dir.filePath(QStringLiteral("bench.sqlite3-wal"))).size()) /
                    1048576.0);

    const QList<ActivitySession> todaySessions = makeDay(today, perDay);
    QList<double> cold, warm;
    for (int round = 0; round < 5; ++round) {
        HistoryCalculator calc(*db);
        QElapsedTimer t;
        t.start();
        calc.compute(clock.now(), 1000, todaySessions);
        cold.append(double(t.nsecsElapsed()) / 1e6);

        for (int i = 0; i < 20; ++i) {
            // One more minute of work today, then the refresh it triggers.
            QList<ActivitySession> more = todaySessions;
            more.append(makeDay(today, 1));
            db->setData(DayKeys::sessions(today.toString(Qt::ISODate)),
                        SessionCodec::encodeDay(more));
            t.restart();
            calc.compute(clock.now(), 1001, more);
            warm.append(double(t.nsecsElapsed()) / 1e6);
        }
    }
    const Stats c = stats(cold), w = stats(warm);
    std::printf("history, cold: median %.2f ms, slowest %.2f ms (%lld runs)\n", c.median, c.worst,
                static_cast<long long>(cold.size()));
    std::printf("history, warm: median %.2f ms, p95 %.2f ms, slowest %.2f ms (%lld runs)\n",
                w.median, w.p95, w.worst, static_cast<long long>(warm.size()));

    // addSession on a day that already holds perDay sessions, including the whole-day write.
    db->setData(DayKeys::sessions(today.toString(Qt::ISODate)),
                SessionCodec::encodeDay(todaySessions));
    DayStore store(*db, clock, DayStore::Options{60 * 60 * 1000});
    store.waitForHistory();
    QList<double> add;
    for (int i = 0; i < 200; ++i) {
        const ActivitySession s = makeDay(today, 1).first();
        QElapsedTimer t;
        t.start();
        store.addSession(s);
        QCoreApplication::sendPostedEvents(&store, QEvent::MetaCall);
        add.append(double(t.nsecsElapsed()) / 1e6);
    }
    const Stats a = stats(add);
    std::printf("addSession + persist (%d-%d sessions): median %.3f ms, p95 %.3f ms, "
                "slowest %.3f ms\n",
                perDay, perDay + 200, a.median, a.p95, a.worst);
    std::printf("resident memory after the runs: %ld KiB\n", residentKiB());
    return 0;
}
