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
    void switchingAwayFlushesTheStay();
    void idleFlushesAndStopsCounting();
    void recoveryAfterBreaks_data();
    void recoveryAfterBreaks();
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
    const QDateTime stayStart = m_clock->now();
    tick(5);
    QVERIFY(m_store->sessions().isEmpty());
    tick(1); // the sixth tick completes a minute
    QCOMPARE(m_store->sessions().size(), 1);
    tick(7); // thirteen ticks: a second minute at the twelfth, ten seconds left over
    QCOMPARE(m_store->sessions().size(), 2);
    const ActivitySession& first = m_store->sessions()[0];
    const ActivitySession& second = m_store->sessions()[1];
    QCOMPARE(first.rawTokens, qint64(8));
    QCOMPARE(first.tokenType, TokenType::reasoning);
    QCOMPARE(first.appBundleID, QString("com.microsoft.VSCode"));
    QCOMPARE(first.appName, QString("Code"));
    // Every session of one stay starts at the switch; each ends when it was converted.
    QCOMPARE(first.startTime, Timestamp::fromDateTime(stayStart));
    QCOMPARE(second.startTime, Timestamp::fromDateTime(stayStart));
    QCOMPARE(first.endTime, Timestamp::fromDateTime(stayStart.addSecs(60)));
    QCOMPARE(second.endTime, Timestamp::fromDateTime(stayStart.addSecs(120)));

    // The ten seconds left over are converted when tracking stops: 8 × 1/6 → at least 1.
    m_monitor->stop();
    settle();
    QCOMPARE(m_store->sessions().size(), 3);
    QCOMPARE(m_store->sessions()[2].rawTokens, qint64(1));
}

void ActivityMonitorTest::switchingAwayFlushesTheStay() {
    tick(4);
    m_workspace.activate(app("com.tinyspeck.slackmacgap", "Slack")); // Messaging: output, 28
    settle();
    QCOMPARE(m_store->sessions().size(), 1);
    QCOMPARE(m_store->sessions()[0].rawTokens, qint64(5)); // 8 × 40/60 = 5.33
    QCOMPARE(m_store->sessions()[0].appName, QString("Code"));

    // Switching on before the first tick of a stay records nothing.
    m_workspace.activate(app("org.mozilla.firefox", "Firefox"));
    settle();
    QCOMPARE(m_store->sessions().size(), 1);

    tick(6);
    QCOMPARE(m_store->sessions().size(), 2);
    QCOMPARE(m_store->sessions()[1].tokenType, TokenType::input);
    QCOMPARE(m_store->sessions()[1].rawTokens, qint64(15));

    // Nothing in front (the desktop's source of windows gone, say) ends the stay as a switch
    // does; then nothing is counted until an application comes forward.
    tick(2);
    m_workspace.clearFront();
    settle();
    QCOMPARE(m_store->sessions().size(), 3);
    QCOMPARE(m_store->sessions()[2].rawTokens, qint64(5)); // 15 × 20/60
    QCOMPARE(m_monitor->currentApp(), QString("\u2014"));
    QCOMPARE(m_monitor->currentRate(), qint64(0));
    tick(30);
    QCOMPARE(m_store->sessions().size(), 3);
    m_workspace.activate(app("org.mozilla.firefox", "Firefox"));
    tick(6);
    QCOMPARE(m_store->sessions().size(), 4);
    QCOMPARE(m_store->sessions()[3].startTime, m_store->sessions()[2].endTime.addSeconds(300));
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

void ActivityMonitorTest::recoveryAfterBreaks_data() {
    QTest::addColumn<int>("breakMinutes");
    QTest::addColumn<qint64>("recovered");
    QTest::newRow("9 min") << 9 << qint64(0);
    QTest::newRow("11 min") << 11 << qint64(30);
    QTest::newRow("70 min") << 70 << qint64(1800);
    QTest::newRow("100 min") << 100 << qint64(1800);
    QTest::newRow("120 min") << 120 << qint64(0);
    QTest::newRow("a night") << 600 << qint64(0);
}

void ActivityMonitorTest::recoveryAfterBreaks() {
    QFETCH(int, breakMinutes);
    QFETCH(qint64, recovered);
    // Earn enough that recovery is not capped by the day's total.
    m_store->addSession(makeSession(TokenType::input, 5000, m_clock->now()));
    settle();
    m_idle.seconds = 1000;
    tick(1); // idle begins at this tick
    m_clock->advanceSeconds(qint64(breakMinutes) * 60 - 10);
    m_idle.seconds = 0;
    tick(1);
    settle();
    QCOMPARE(m_store->recoveredTokens(), recovered);
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
    QCOMPARE(m_store->sessions()[0].appName, QString("Unknown"));
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
    QCOMPARE(s.appBundleID, QString("com.apple.Terminal.GNOME"));
    QCOMPARE(s.appName, QString("Terminal"));
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

    QVERIFY(ActivityMonitor::claudeProcessRunning() == false); // no such process here
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
    QCOMPARE(m_monitor->currentTypeRaw(), QString("reasoning"));
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
