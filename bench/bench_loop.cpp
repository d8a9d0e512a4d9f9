// The sensing loop's own costs: what one ten-second tick costs, and how long a switch of
// application takes to reach the database.
//
//   build/bench/bench_loop                       wall-clock figures
//   valgrind --tool=callgrind --instr-atstart=no build/bench/bench_loop
//                                                instructions, one callgrind.out file a phase
//
// The real monitor, working-mode engine and day store run over a real SQLite file; the
// desktop is simulated (the X server's round trip for the idle time is not counted), and the
// history refresh is left out (see bench_history). Phases:
//
//   tick-no-session   a tick in an application that earns nothing (no minute is stored)
//   tick-working-day  an eight-hour day in an editor: 2,880 ticks, a session stored (the
//                     whole day written) every sixth
//   engine-tick       the working-mode engine's tick
//   switch            a change of front application: the stay closed, its session stored

#include "model/SessionCodec.h"
#include "platform/Clock.h"
#include "platform/IdleSource.h"
#include "platform/Workspace.h"
#include "sensing/ActivityMonitor.h"
#include "sensing/SessionContextEngine.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <valgrind/callgrind.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

namespace {

class SteppedClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::fromMSecsSinceEpoch(ms, Qt::LocalTime); }
    qint64 elapsedMs() const override { return ms; }
    std::atomic<qint64> ms{QDateTime(QDate(2026, 5, 26), QTime(9, 0)).toMSecsSinceEpoch()};
};

class Desk final : public Workspace, public IdleSource {
public:
    std::optional<RunningApp> frontmostApplication() const override { return front; }
    QList<RunningApp> runningApplications() const override { return {front}; }
    double secondsSinceLastInput() const override { return 1; }
    void activate(const RunningApp& app) {
        front = app;
        emit applicationActivated(app);
    }
    RunningApp front;
};

const RunningApp editor{QStringLiteral("com.microsoft.VSCode"), QStringLiteral("Code"), true, 1};
const RunningApp player{QStringLiteral("com.spotify.client"), QStringLiteral("Spotify"), true, 2};
const RunningApp chat{QStringLiteral("com.tinyspeck.slackmacgap"), QStringLiteral("Slack"), true,
                      3};

struct Loop {
    QTemporaryDir dir;
    std::unique_ptr<SqliteDefaults> db = SqliteDefaults::open(dir.filePath("bench.sqlite3"));
    SteppedClock clock;
    Desk desk;
    DayStore store{*db, clock, DayStore::Options{24 * 3600 * 1000}};
    SessionContextEngine engine{desk, desk,  store,
                                *db,  clock, SessionContextEngine::Options{24 * 3600 * 1000, 30}};
    ActivityMonitor monitor{store,
                            desk,
                            desk,
                            *db,
                            clock,
                            [this] { return engine.multiplier(); },
                            ActivityMonitor::Options{24 * 3600 * 1000, 30,
                                                     QStringLiteral("com.mindmeter.Mindmeter"),
                                                     [] { return false; }}};

    void monitorTick() {
        clock.ms += 10000;
        QMetaObject::invokeMethod(&monitor, "tick");
        QCoreApplication::sendPostedEvents();
    }
    void engineTick() {
        QMetaObject::invokeMethod(&engine, "tick");
        QCoreApplication::sendPostedEvents();
    }
};

double median(QList<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}
double percentile95(QList<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() * 95 / 100];
}

// One phase: its callgrind counts go to their own file, named after it.
template <typename F> double phase(const char* name, int repeats, F body) {
    CALLGRIND_ZERO_STATS;
    QElapsedTimer t;
    t.start();
    for (int i = 0; i < repeats; ++i)
        body(i);
    const double us = double(t.nsecsElapsed()) / 1000.0 / repeats;
    CALLGRIND_DUMP_STATS_AT(name);
    return us;
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    Loop loop;
    loop.desk.front = player;
    loop.monitor.start();
    loop.store.waitForHistory();
    for (int i = 0; i < 12; ++i) { // settle the engine's mode and caches
        loop.engineTick();
        loop.monitorTick();
    }
    CALLGRIND_START_INSTRUMENTATION;

    const double noSession = phase("tick-no-session", 6000, [&](int) { loop.monitorTick(); });

    loop.desk.activate(editor);
    loop.engineTick();
    const double day = phase("tick-working-day", 2880, [&](int) { loop.monitorTick(); });
    const qsizetype stored = loop.store.sessions().size();

    const double engine = phase("engine-tick", 6000, [&](int) { loop.engineTick(); });

    // Switches after half a minute in each application: the closing stay's session is
    // recorded and the day, now about 500 sessions, written whole.
    QList<double> switches;
    phase("switch", 200, [&](int i) {
        CALLGRIND_TOGGLE_COLLECT; // the ticks between switches are not the switch's cost
        for (int t = 0; t < 3; ++t)
            loop.monitorTick();
        CALLGRIND_TOGGLE_COLLECT;
        QElapsedTimer s;
        s.start();
        loop.desk.activate(i % 2 ? editor : chat);
        QCoreApplication::sendPostedEvents();
        switches.append(double(s.nsecsElapsed()) / 1000.0);
    });
    CALLGRIND_STOP_INSTRUMENTATION;

    std::printf("tick, no session: %.1f us\n", noSession);
    std::printf("tick over a working day (%lld sessions stored): %.1f us\n",
                static_cast<long long>(stored), day);
    std::printf("engine tick: %.1f us\n", engine);
    std::printf("switch to stored session: median %.0f us, p95 %.0f us (%lld switches, day of "
                "%lld sessions)\n",
                median(switches), percentile95(switches), static_cast<long long>(switches.size()),
                static_cast<long long>(loop.store.sessions().size()));
    return 0;
}
