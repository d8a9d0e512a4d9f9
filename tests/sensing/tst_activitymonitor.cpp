#include "FakeClock.h"
#include "FakeDesktop.h"
#include "Sessions.h"

#include "sensing/ActivityMonitor.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>

#include <atomic>

class ActivityMonitorTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void minutesBecomeSessions();
    void nothingInFrontEndsTheStay();
    void idleFlushesAndStopsCounting();
    void multiplierAndFloorOfOne();
    void ownWindowsAreNotASwitch();
    void zeroRateAndMissingIdentity();
    void claudeInATerminalCountsAsAI();
    void publishedValuesAndStop();

private:
    void tick(int n = 1) {
        for (int i = 0; i < n; ++i) {
            m_clock->advanceSeconds(10);
            QVERIFY(QMetaObject::invokeMethod(m_monitor.get(), "tick"));
        }
        settle();
    }
    std::unique_ptr<ActivityMonitor> makeMonitor(std::function<bool()> claude = [] {
        return false;
    }) {
        ActivityMonitor::Options options;
        options.claudeProcessRunning = std::move(claude);
        return std::make_unique<ActivityMonitor>(
            *m_store, m_workspace, m_idle, *m_db, *m_clock, [this] { return m_multiplier; },
            options);
    }

    std::unique_ptr<SqliteDefaults> m_db;
    std::unique_ptr<FakeClock> m_clock;
    std::unique_ptr<DayStore> m_store;
    FakeWorkspace m_workspace;
    FakeIdleSource m_idle;
    double m_multiplier = 1.0;
    std::unique_ptr<ActivityMonitor> m_monitor;
};

void ActivityMonitorTest::init() {
    m_db = SqliteDefaults::open(":memory:");
    m_clock = std::make_unique<FakeClock>(local(2026, 5, 30, 9));
    m_store = std::make_unique<DayStore>(*m_db, *m_clock);
    m_workspace.front = app("com.microsoft.VSCode", "Code"); // Code Editor: reasoning, 8/min
    m_idle.seconds = 0;
    m_multiplier = 1.0;
    m_monitor = makeMonitor();
    m_monitor->start();
}

void ActivityMonitorTest::cleanup() {
    m_monitor.reset();
    m_store.reset();
}

void ActivityMonitorTest::minutesBecomeSessions() {
    // Whole minutes and switches are the month test's part; here the remainder when tracking
    // stops.
    tick(7); // a minute, and ten seconds over
    QCOMPARE(m_store->sessions().size(), 1);
    m_monitor->stop();
    settle();
    QCOMPARE(m_store->sessions().size(), 2);
    QCOMPARE(m_store->sessions()[1].rawTokens, qint64(1)); // 8 × 1/6 → at least 1
}

void ActivityMonitorTest::nothingInFrontEndsTheStay() {
    // Nothing in front (the desktop's source of windows gone, say) ends the stay as a switch
    // does; then nothing is counted until an application comes forward.
    tick(2);
    m_workspace.clearFront();
    settle();
    QCOMPARE(m_store->sessions().size(), 1);
    QCOMPARE(m_store->sessions()[0].rawTokens, qint64(2)); // 8 × 20/60
    QCOMPARE(m_monitor->currentApp(), QString("\u2014"));
    QCOMPARE(m_monitor->currentRate(), qint64(0));
    tick(30);
    QCOMPARE(m_store->sessions().size(), 1);
    m_workspace.activate(app("org.mozilla.firefox", "Firefox"));
    tick(6);
    QCOMPARE(m_store->sessions().size(), 2);
    QCOMPARE(m_store->sessions()[1].startTime, m_store->sessions()[0].endTime.addSeconds(300));
}

void ActivityMonitorTest::idleFlushesAndStopsCounting() {
    tick(3);
    m_idle.seconds = 180; // equal to the time-out still counts as present
    tick(1);
    QVERIFY(m_store->sessions().isEmpty());
    m_idle.seconds = 190; // three minutes and ten seconds: idle
    tick(1);
    QCOMPARE(m_store->sessions().size(), 1);
    QCOMPARE(m_store->sessions()[0].rawTokens, qint64(5)); // 40 s at 8/min
    tick(20); // idle ticks neither accumulate nor flush
    m_idle.seconds = 0;
    tick(5);
    QCOMPARE(m_store->sessions().size(), 1);
    tick(1);
    QCOMPARE(m_store->sessions().size(), 2);

    // A shorter time-out setting applies at once.
    m_db->setInteger("mindmeter.idleTimeoutMinutes", 1);
    m_idle.seconds = 61;
    tick(3);
    m_idle.seconds = 0;
    tick(6);
    QCOMPARE(m_store->sessions().size(), 3);
}

void ActivityMonitorTest::multiplierAndFloorOfOne() {
    m_multiplier = 1.4;
    tick(6);
    QCOMPARE(m_store->sessions().last().rawTokens, qint64(11)); // 8 × 1.4 = 11.2
    m_multiplier = 0.1;
    tick(6);
    QCOMPARE(m_store->sessions().last().rawTokens, qint64(1)); // 0.8, never below one
}

void ActivityMonitorTest::ownWindowsAreNotASwitch() {
    tick(3);
    m_workspace.activate(app(ActivityMonitor::ownBundleID, "Mindmeter"));
    settle();
    QVERIFY(m_store->sessions().isEmpty());
    tick(3); // still accumulating for the editor
    QCOMPARE(m_store->sessions().size(), 1);
    QCOMPARE(m_store->sessions()[0].appBundleID, QString("com.microsoft.VSCode"));
    QCOMPARE(m_monitor->currentApp(), QString("Code"));
}

void ActivityMonitorTest::zeroRateAndMissingIdentity() {
    m_workspace.activate(app("com.spotify.client", "Spotify")); // Music / Video: rate 0
    tick(12);
    QVERIFY(m_store->sessions().isEmpty());

    m_workspace.activate(RunningApp{}); // no identifier, no name: "Other", 8 per minute
    tick(6);
    QCOMPARE(m_store->sessions().size(), 1);
    QCOMPARE(m_store->sessions()[0].appBundleID, QString("unknown"));
    QCOMPARE(m_store->sessions()[0].tokenType, TokenType::input);
    QCOMPARE(m_monitor->currentApp(), QString("Unknown"));
}

void ActivityMonitorTest::claudeInATerminalCountsAsAI() {
    std::atomic<int> checks{0};
    m_monitor = makeMonitor([&checks] {
        ++checks;
        return true;
    });
    m_workspace.front.reset();
    m_monitor->start();

    // The first stay in the terminal starts the check and sees its old answer.
    m_workspace.activate(app("com.apple.Terminal.GNOME", "Terminal"));
    tick(6);
    QThreadPool::globalInstance()->waitForDone(); // the check ran and posted its answer
    settle();
    QCOMPARE(checks.load(), 1);
    QCOMPARE(m_store->sessions().last().tokenType, TokenType::reasoning);

    m_workspace.activate(app("com.microsoft.VSCode", "Code"));
    m_workspace.activate(app("com.apple.Terminal.GNOME", "Terminal"));
    tick(6);
    const ActivitySession& s = m_store->sessions().last();
    QCOMPARE(s.tokenType, TokenType::ai);
    QCOMPARE(s.rawTokens, qint64(50));
    // Each switch into the terminal came 60 s after the last check, so each started one.
    QThreadPool::globalInstance()->waitForDone();
    QCOMPARE(checks.load(), 2);
    m_workspace.activate(app("com.microsoft.VSCode", "Code"));
    m_workspace.activate(app("com.apple.Terminal.GNOME", "Terminal"));
    QThreadPool::globalInstance()->waitForDone();
    QCOMPARE(checks.load(), 3);
    // Within 30 s of a check, switching back and forth starts none.
    m_clock->advanceSeconds(29);
    m_workspace.activate(app("com.microsoft.VSCode", "Code"));
    m_workspace.activate(app("com.apple.Terminal.GNOME", "Terminal"));
    QThreadPool::globalInstance()->waitForDone();
    QCOMPARE(checks.load(), 3);
}

void ActivityMonitorTest::publishedValuesAndStop() {
    m_monitor = makeMonitor();
    QCOMPARE(m_monitor->currentApp(), QString("\u2014"));
    QCOMPARE(m_monitor->isTracking(), false);
    QSignalSpy appChanged(m_monitor.get(), &ActivityMonitor::currentAppChanged);
    m_monitor->start();
    QCOMPARE(m_monitor->isTracking(), true);
    QCOMPARE(m_monitor->currentApp(), QString("\u2014")); // published on a later turn
    settle();
    QCOMPARE(m_monitor->currentApp(), QString("Code"));
    QCOMPARE(m_monitor->currentRate(), qint64(8));
    QCOMPARE(appChanged.count(), 1);

    m_monitor->stop();
    QCOMPARE(m_monitor->isTracking(), false);
    m_workspace.activate(app("com.tinyspeck.slackmacgap", "Slack"));
    settle();
    QCOMPARE(m_monitor->currentApp(), QString("Code")); // no longer listening
    QVERIFY(m_store->sessions().isEmpty());
}

QTEST_GUILESS_MAIN(ActivityMonitorTest)
#include "tst_activitymonitor.moc"
