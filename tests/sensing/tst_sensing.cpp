// The sensing parts one case at a time, over a fake desktop, tab source and file index: the
// activity monitor, the working-mode engine, the browser tracker and the repository monitor.
// Whole minutes, switches, breaks and each mode's multiplier run for a month in tst_month;
// real saves and commits in tst_track.

#include "FakeClock.h"
#include "FakeDesktop.h"
#include "Sessions.h"

#include "model/CategoryRules.h"
#include "sensing/ActivityMonitor.h"
#include "sensing/BrowserAITracker.h"
#include "sensing/SessionContextEngine.h"
#include "sensing/SpotlightMonitor.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QMutex>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>

using Mode = SessionContextEngine::Mode;

namespace {

// A tab source that can ask the applications whose identifier starts with "test.browser"
// and answers what the test says.
class FakeTabSource final : public BrowserTabSource {
public:
    bool canAsk(const RunningApp& app) const override {
        return app.bundleID.startsWith(QLatin1String("test.browser"));
    }
    std::optional<QString> activeTabURL(const RunningApp& front) override {
        asked.append(front);
        return url;
    }
    void probeForPermission(const QList<RunningApp>&) override {}
    // With `holdAnswers`, answers as a source reading on another thread does: later.
    void requestActiveTabURL(const RunningApp& front, QObject* context, Reply reply) override {
        if (!holdAnswers)
            return BrowserTabSource::requestActiveTabURL(front, context, std::move(reply));
        asked.append(front);
        held.append([reply, answer = url] { reply(answer); });
    }

    bool holdAnswers = false;
    QList<std::function<void()>> held;
    std::optional<QString> url;
    QList<RunningApp> asked;
};

// A file index that answers what the test says, and notes what it was asked.
class FakeFileChangeIndex final : public FileChangeIndex {
public:
    QStringList modifiedWithin(int seconds) const override {
        QMutexLocker lock(&m_mutex);
        m_asked.append(seconds);
        return m_paths;
    }
    void setPaths(const QStringList& paths) {
        QMutexLocker lock(&m_mutex);
        m_paths = paths;
    }
    QList<int> asked() const {
        QMutexLocker lock(&m_mutex);
        return m_asked;
    }

private:
    mutable QMutex m_mutex;
    QStringList m_paths;
    mutable QList<int> m_asked;
};

QStringList numbered(const QString& folder, const QString& ext, int count) {
    QStringList paths;
    for (int i = 0; i < count; ++i)
        paths.append(QStringLiteral("%1/file%2.%3").arg(folder).arg(i).arg(ext));
    return paths;
}

} // namespace

class SensingTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void publishesTheFrontAndFlushesOnStop();
    void nothingInFrontEndsTheStay();
    void idleFlushesAndStopsCounting();
    void ownWindowsAreNotASwitch();
    void zeroRateAndMissingIdentity();
    void claudeInATerminalCountsAsAI();
    void classification_data();
    void classification();
    void switchesWithinTheHour();
    void runningApplicationsAreSeen();
    void temperatureHandOff();
    void sitesAreRecognised_data();
    void sitesAreRecognised();
    void sameAddressCountsOnce();
    void onlyTheFrontBrowserIsAsked();
    void stopForgetsTheAddressAndPollsStartOneIntervalLater();
    void answersComeLater();
    void sessionSizes_data();
    void sessionSizes();
    void skipRules();
    void savesCountOnceWhileRemembered();
    void hungGitIsKilled();

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
            *m_store, m_workspace, m_idle, *m_db, *m_clock, [] { return 1.0; }, options);
    }
    // The engine alone, with nothing in front.
    void startEngine() {
        m_monitor.reset();
        m_workspace.front.reset();
        m_engine =
            std::make_unique<SessionContextEngine>(m_workspace, m_idle, *m_store, *m_db, *m_clock);
    }
    void engineTick() {
        QVERIFY(QMetaObject::invokeMethod(m_engine.get(), "tick"));
        settle();
    }

    // The browser tracker on a fresh tab source, the browser in front.
    void startTracker();
    void poll(const std::optional<QString>& url);
    // A repository monitor over `index`, started: its warm-up runs before any scan.
    std::unique_ptr<SpotlightMonitor> makeSpotlight(FileChangeIndex& index,
                                                    const QString& git = "/nonexistent/git",
                                                    int gitTimeoutMs = 5000);
    // One timer firing with `multiplier`, then everything it posted.
    void scan(double multiplier = 1.0);
    QList<ActivitySession> sessionsOf(const QString& bundleID) const;

    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<SqliteDefaults> m_db;
    std::unique_ptr<FakeClock> m_clock;
    std::unique_ptr<DayStore> m_store;
    FakeWorkspace m_workspace;
    FakeIdleSource m_idle;
    std::unique_ptr<ActivityMonitor> m_monitor;
    std::unique_ptr<SessionContextEngine> m_engine;
    std::unique_ptr<FakeTabSource> m_tabs;
    std::unique_ptr<BrowserAITracker> m_tracker;
    std::unique_ptr<SpotlightMonitor> m_spotlight;
    double m_multiplier = 1.0;
    QThread* m_multiplierReadOn = nullptr;
};

void SensingTest::init() {
    m_home = std::make_unique<QTemporaryDir>();
    QVERIFY(m_home->isValid());
    m_db = SqliteDefaults::open(":memory:");
    m_clock = std::make_unique<FakeClock>(local(2026, 5, 30, 9));
    m_store = std::make_unique<DayStore>(*m_db, *m_clock);
    m_workspace.front = app("com.microsoft.VSCode", "Code"); // Code Editor: reasoning, 8/min
    m_workspace.running.clear();
    m_idle.seconds = 0;
    m_monitor = makeMonitor();
    m_monitor->start();
}

void SensingTest::cleanup() {
    m_spotlight.reset();
    m_tracker.reset();
    m_engine.reset();
    m_monitor.reset();
    m_store.reset(); // before the database it reads
}

// --- The activity monitor --------------------------------------------------------------------

void SensingTest::publishesTheFrontAndFlushesOnStop() {
    m_monitor = makeMonitor();
    QSignalSpy appChanged(m_monitor.get(), &ActivityMonitor::currentAppChanged);
    m_monitor->start();
    QCOMPARE(m_monitor->currentApp(), QString("\u2014")); // published on a later turn
    settle();
    QCOMPARE(m_monitor->currentApp(), QString("Code"));
    QCOMPARE(m_monitor->currentRate(), qint64(8));
    QCOMPARE(appChanged.count(), 1);
    tick(7); // a minute, and ten seconds over
    QCOMPARE(m_store->sessions().size(), 1);
    m_monitor->stop();
    QCOMPARE(m_monitor->isTracking(), false);
    m_workspace.activate(app("com.tinyspeck.slackmacgap", "Slack"));
    settle();
    QCOMPARE(m_monitor->currentApp(), QString("Code")); // no longer listening
    QCOMPARE(m_store->sessions().size(), 2);
    QCOMPARE(m_store->sessions()[1].rawTokens, qint64(1)); // 8 × 1/6 → at least 1
}

void SensingTest::nothingInFrontEndsTheStay() {
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

void SensingTest::idleFlushesAndStopsCounting() {
    QSignalSpy breaks(m_monitor.get(), &ActivityMonitor::breakStarted);
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
    QCOMPARE(breaks.size(), 2); // once a break, not once a tick
}

void SensingTest::ownWindowsAreNotASwitch() {
    tick(3);
    m_workspace.activate(app(ActivityMonitor::ownBundleID, "Mindmeter"));
    settle();
    QVERIFY(m_store->sessions().isEmpty());
    tick(3); // still accumulating for the editor
    QCOMPARE(m_store->sessions().size(), 1);
    QCOMPARE(m_store->sessions()[0].appBundleID, QString("com.microsoft.VSCode"));
    QCOMPARE(m_monitor->currentApp(), QString("Code"));
}

void SensingTest::zeroRateAndMissingIdentity() {
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

void SensingTest::claudeInATerminalCountsAsAI() {
    std::atomic<int> checks{0};
    m_monitor = makeMonitor([&checks] {
        ++checks;
        return true;
    });
    m_workspace.front.reset();
    m_monitor->start();
    // Each switch into the terminal starts a check unless one ran within 30 s; a stay sees the
    // answer of the check before it.
    const auto intoTheTerminal = [this](qint64 ticks) {
        m_workspace.activate(app("com.microsoft.VSCode", "Code"));
        m_workspace.activate(app("com.apple.Terminal.GNOME", "Terminal"));
        tick(int(ticks));
        QThreadPool::globalInstance()->waitForDone();
        settle();
    };
    intoTheTerminal(6);
    QCOMPARE(checks.load(), 1);
    QCOMPARE(m_store->sessions().last().tokenType, TokenType::reasoning);
    intoTheTerminal(6);
    QCOMPARE(checks.load(), 2);
    QCOMPARE(m_store->sessions().last().tokenType, TokenType::ai);
    QCOMPARE(m_store->sessions().last().rawTokens, qint64(50));
    intoTheTerminal(0);
    QCOMPARE(checks.load(), 3);
    m_clock->advanceSeconds(29);
    intoTheTerminal(0);
    QCOMPARE(checks.load(), 3);
}

// --- The working-mode engine ----------------------------------------------------------------

void SensingTest::classification_data() {
    QTest::addColumn<QByteArray>("rules");
    QTest::addColumn<QString>("front");
    QTest::addColumn<QStringList>("running");
    QTest::addColumn<int>("switches");
    QTest::addColumn<Mode>("mode");
    const QStringList none;
    const QByteArray no = "[]";
    QTest::newRow("seven switches change nothing")
        << no << "com.apple.Safari" << none << 7 << Mode::browsing;
    QTest::newRow("eight: switching") << no << "claude" << none << 8 << Mode::switching;
    QTest::newRow("fifteen: fragmented") << no << "claude" << none << 15 << Mode::distracted;
    QTest::newRow("teams is a meeting")
        << no << "com.microsoft.teams2" << none << 0 << Mode::meeting;
    QTest::newRow("mail counts as writing")
        << no << "com.apple.mail.Thunderbird" << none << 0 << Mode::writing;
    QTest::newRow("chat beats an open IDE")
        << no << "com.discord" << QStringList{"com.microsoft.VSCode"} << 0 << Mode::communication;
    QTest::newRow("unknown, no IDE") << no << "org.example.tool" << none << 0 << Mode::idle;
    QTest::newRow("prefix is case-sensitive") << no << "COM.DISCORD" << none << 0 << Mode::idle;
    // The user's rules move applications between the lists.
    QTest::newRow("reassigned to AI")
        << QByteArray(R"([{"app": "org.example", "category": "AI Tool"}])") << "org.example.chat"
        << none << 0 << Mode::aiSession;
    QTest::newRow("teams only as chat")
        << QByteArray(R"([{"app": "com.microsoft.teams", "category": "Messaging"}])")
        << "com.microsoft.teams2" << none << 0 << Mode::communication;
    QTest::newRow("an editor of one's own is an IDE")
        << QByteArray(R"([{"app": "org.kde.kate", "category": "Code Editor"}])")
        << "org.example.tool" << QStringList{"org.kde.kate"} << 0 << Mode::coding;
    QTest::newRow("an IDE reassigned away no longer is one")
        << QByteArray(R"([{"app": "com.microsoft.VSCode", "category": "Reading"}])")
        << "com.microsoft.Excel" << QStringList{"com.microsoft.VSCode"} << 0 << Mode::idle;
    QTest::newRow("a type and a rate leave the lists as they are")
        << QByteArray(R"([{"app": "com.discord", "type": "reasoning", "rate": 20}])")
        << "com.discord" << none << 0 << Mode::communication;
}

void SensingTest::classification() {
    QFETCH(QByteArray, rules);
    QFETCH(QString, front);
    QFETCH(QStringList, running);
    QFETCH(int, switches);
    QFETCH(Mode, mode);
    QCOMPARE(SessionContextEngine::classify(front, running, switches,
                                            CategoryRules(*CategoryRules::decode(rules))),
             mode);
}

void SensingTest::switchesWithinTheHour() {
    startEngine();
    QSignalSpy modeChanged(m_engine.get(), &SessionContextEngine::modeChanged);
    m_workspace.front = app("com.apple.Safari");
    engineTick();
    QCOMPARE(m_engine->mode(), Mode::browsing);
    QCOMPARE(modeChanged.count(), 1);
    engineTick();
    QCOMPARE(modeChanged.count(), 1); // an unchanged tick publishes nothing

    // Eight changes, one per tick, ten seconds apart.
    const QDateTime firstSwitch = m_clock->now().addSecs(10);
    for (int i = 0; i < 8; ++i) {
        m_clock->advanceSeconds(10);
        m_workspace.front = app(i % 2 ? "com.apple.Safari" : "org.example.a");
        engineTick();
    }
    QCOMPARE(m_engine->switchesLastHour(), qint64(8));
    QCOMPARE(m_engine->mode(), Mode::switching);
    QCOMPARE(m_engine->multiplier(), 0.8); // what the monitor reads

    // An entry exactly an hour old is kept; a second later it is gone.
    m_clock->set(firstSwitch.addSecs(3600));
    engineTick();
    QCOMPARE(m_engine->switchesLastHour(), qint64(8));
    m_clock->advanceSeconds(1);
    engineTick();
    QCOMPARE(m_engine->switchesLastHour(), qint64(7));
    QCOMPARE(m_engine->mode(), Mode::browsing);
}

void SensingTest::runningApplicationsAreSeen() {
    // An IDE open behind a spreadsheet makes it coding; the list is read at most every 30 s,
    // and only regular applications count.
    startEngine();
    m_workspace.front = app("com.microsoft.Excel");
    m_workspace.running = {app("com.apple.dt.Xcode")};
    m_clock->advanceSeconds(30);
    engineTick();
    QCOMPARE(m_engine->mode(), Mode::coding);
    m_workspace.running[0].isRegular = false;
    m_clock->advanceSeconds(30);
    engineTick();
    QCOMPARE(m_engine->mode(), Mode::idle);
}

void SensingTest::temperatureHandOff() {
    startEngine();
    QSignalSpy checks(m_engine.get(), &SessionContextEngine::temperatureCheckRequested);
    m_store->addSessions({makeSession(TokenType::reasoning, 10, m_clock->now()),
                          makeSession(TokenType::output, 15, m_clock->now())});
    settle();
    engineTick();
    QCOMPARE(checks.last().at(0).toDouble(), 0.5);
    m_idle.seconds = 181; // idle by the time-out: never a high-temperature alert
    engineTick();
    QCOMPARE(checks.last().at(0).toDouble(), 0.0);
    const qsizetype told = checks.size();
    engineTick(); // still away: nothing new to hear
    QCOMPARE(checks.size(), told);
}

// --- The browser tracker -----------------------------------------------------------------

void SensingTest::startTracker() {
    m_monitor.reset();
    m_workspace.front = app(QStringLiteral("test.browser"));
    m_tabs = std::make_unique<FakeTabSource>();
    BrowserAITracker::Options options;
    options.pollIntervalMs = 60 * 60 * 1000; // polls are triggered by the test
    m_tracker = std::make_unique<BrowserAITracker>(*m_store, m_workspace, *m_tabs, *m_db, *m_clock,
                                                   options);
}

void SensingTest::poll(const std::optional<QString>& url) {
    m_tabs->url = url;
    QVERIFY(QMetaObject::invokeMethod(m_tracker.get(), "poll"));
    settle();
}

void SensingTest::sitesAreRecognised_data() {
    QTest::addColumn<QString>("rules");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("recorded"); // "bundle id | name | type | raw tokens", or empty
    const auto row = [](const char* tag, const char* rules, const char* url, const char* seen) {
        QTest::newRow(tag) << rules << url << seen;
    };
    const char* chatGpt = "browser.ai.chatgpt.com | ChatGPT (web) | ai | 25";
    row("ChatGPT, any path", "[]", "https://chatgpt.com/c/6650-abc?model=x", chatGpt);
    row("Zoom meeting link", "[]", "https://us02web.zoom.us/j/8812345?pwd=x",
        "browser.meeting.zoom.us/j/ | Zoom (web) | input | 10");
    row("Zoom home page", "[]", "https://zoom.us/", "");
    row("domain in a query string", "[]", "https://www.google.com/search?q=claude.ai",
        "browser.ai.claude.ai | Claude (web) | ai | 25");
    row("meetings before AI", "[]", "https://meet.google.com/abc-defg?ref=claude.ai",
        "browser.meeting.meet.google.com | Google Meet (web) | input | 10");
    row("longest domain first", "[]", "https://chatgpt.com/?q=claude.ai", chatGpt);
    row("equal length: declaration order", "[]", "https://suno.com/?from=grok.com",
        "browser.ai.grok.com | Grok (web) | ai | 25");
    row("case matters", "[]", "https://CLAUDE.AI/new", "");
    row("unknown site", "[]", "https://example.org/", "");
    row("an AI site of one's own", R"([{"site": "chat.example.com", "category": "AI Tool"}])",
        "https://CHAT.example.com/x",
        "browser.ai.chat.example.com | chat.example.com (web) | ai | 25");
    row("a meeting site of one's own",
        R"([{"site": "talk.example.com", "category": "Video Call"}])",
        "https://talk.example.com/r/1",
        "browser.meeting.talk.example.com | talk.example.com (web) | input | 10");
    row("a known site taken out", R"([{"site": "huggingface.co", "category": "Reading"}])",
        "https://huggingface.co/models", "");
    row("a type and a rate: half a minute",
        R"([{"site": "docs.example.com", "type": "output", "rate": 41}])",
        "https://docs.example.com/a",
        "browser.site.docs.example.com | docs.example.com (web) | output | 20");
    row("a rule before the tables, and a known name kept",
        R"([{"site": "claude.ai", "category": "Video Call"}])",
        "https://meet.google.com/abc?ref=claude.ai",
        "browser.meeting.claude.ai | Claude (web) | input | 10");
    row("unreadable rules are ignored", "[{\"site\": \"claude.ai\"}]", "https://claude.ai/new",
        "browser.ai.claude.ai | Claude (web) | ai | 25");
}

void SensingTest::sitesAreRecognised() {
    startTracker();
    QFETCH(QString, rules);
    QFETCH(QString, url);
    QFETCH(QString, recorded);
    QVERIFY(m_db->setString(CategoryRules::key, rules));
    poll(url);
    QStringList seen;
    for (const ActivitySession& s : m_store->sessions()) {
        seen << QStringLiteral("%1 | %2 | %3 | %4")
                    .arg(s.appBundleID, s.appName, TokenTypes::rawValue(s.tokenType))
                    .arg(s.rawTokens);
        QCOMPARE(s.endTime, Timestamp::fromDateTime(m_clock->now())); // the last half minute
        QCOMPARE(s.duration(), 30.0);
    }
    QCOMPARE(seen, recorded.isEmpty() ? QStringList{} : QStringList{recorded});
}

void SensingTest::sameAddressCountsOnce() {
    startTracker();
    const QString one = "https://claude.ai/chat/1", two = "https://claude.ai/chat/2";
    // Each answer and the sessions recorded by then: an address counts again only after another
    // answer (a new address, none, an empty one, an unknown site) came between.
    const QList<std::pair<std::optional<QString>, int>> polls = {
        {one, 1}, {one, 1},       {two, 2}, {std::nullopt, 2},
        {two, 3}, {QString(), 3}, {two, 4}, {"https://example.org/", 4},
        {two, 5}};
    for (const auto& [url, sessions] : polls) {
        poll(url);
        QCOMPARE(m_store->sessions().size(), sessions);
    }
}

void SensingTest::onlyTheFrontBrowserIsAsked() {
    startTracker();
    const QString chat = QStringLiteral("https://chatgpt.com/");
    poll(chat);
    QCOMPARE(m_tabs->asked.size(), 1);
    QCOMPARE(m_tabs->asked.first().bundleID, "test.browser");

    // Not asked: an application it cannot ask, nothing in front, one without an identifier.
    for (const auto& front : {std::optional(app("org.gnu.Emacs")), std::optional<RunningApp>(),
                              std::optional(app(QString()))}) {
        m_workspace.front = front;
        poll(chat);
    }
    QCOMPARE(m_tabs->asked.size(), 1);

    // Time in another application does not forget the page: back on it, nothing new.
    m_workspace.front = app(QStringLiteral("test.browser.beta"));
    poll(chat);
    QCOMPARE(m_tabs->asked.size(), 2);
    QCOMPARE(m_store->sessions().size(), 1);
}

void SensingTest::stopForgetsTheAddressAndPollsStartOneIntervalLater() {
    startTracker();
    const QString gemini = QStringLiteral("https://gemini.google.com/app");
    poll(gemini);
    m_tracker->stop();
    poll(gemini);
    QCOMPARE(m_store->sessions().size(), 2);

    BrowserAITracker::Options options;
    options.pollIntervalMs = 20;
    BrowserAITracker timed(*m_store, m_workspace, *m_tabs, *m_db, *m_clock, options);
    m_tabs->asked.clear();
    m_tabs->url = QStringLiteral("https://mistral.ai/chat");
    timed.start();
    QVERIFY(m_tabs->asked.isEmpty());       // no poll at start
    QTRY_VERIFY(m_tabs->asked.size() >= 2); // then one every interval
    timed.stop();
    QCOMPARE(m_store->sessions().last().appBundleID, "browser.ai.mistral.ai");
}

void SensingTest::answersComeLater() {
    startTracker();
    m_tabs->holdAnswers = true;
    poll(QStringLiteral("https://claude.ai/new"));
    poll(QStringLiteral("https://claude.ai/new")); // still waiting: not asked again
    QCOMPARE(m_tabs->asked.size(), 1);
    QCOMPARE(m_store->sessions().size(), 0);
    m_tabs->held.takeFirst()();
    settle();
    QCOMPARE(m_store->sessions().size(), 1);

    // An answer for a run that has been stopped records nothing.
    poll(QStringLiteral("https://poe.com/"));
    m_tracker->stop();
    m_tabs->held.takeFirst()();
    settle();
    QCOMPARE(m_store->sessions().size(), 1);
    poll(QStringLiteral("https://poe.com/"));
    m_tabs->held.takeFirst()();
    settle();
    QCOMPARE(m_store->sessions().last().appBundleID, "browser.ai.poe.com");
}

// --- The repository monitor ---------------------------------------------------------------

std::unique_ptr<SpotlightMonitor> SensingTest::makeSpotlight(FileChangeIndex& index,
                                                             const QString& git, int gitTimeoutMs) {
    SpotlightMonitor::Options options;
    options.gitExecutable = git;
    options.scanIntervalMs = 60 * 60 * 1000; // scans are triggered by the test
    options.gitTimeoutMs = gitTimeoutMs;
    const auto multiplier = [this] {
        m_multiplierReadOn = QThread::currentThread();
        return m_multiplier;
    };
    m_monitor.reset();
    auto monitor =
        std::make_unique<SpotlightMonitor>(*m_store, index, multiplier, *m_clock, options);
    monitor->start(); // the warm-up runs on the worker before any scan
    return monitor;
}

void SensingTest::scan(double multiplier) {
    m_multiplier = multiplier;
    QVERIFY(QMetaObject::invokeMethod(m_spotlight.get(), "timerFired"));
    m_spotlight->waitUntilIdle();
    settle();
}

QList<ActivitySession> SensingTest::sessionsOf(const QString& bundleID) const {
    QList<ActivitySession> found;
    for (const ActivitySession& s : m_store->sessions())
        if (s.appBundleID == bundleID)
            found.append(s);
    return found;
}

void SensingTest::sessionSizes_data() {
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("docs");
    QTest::addColumn<double>("multiplier");
    QTest::addColumn<qint64>("codeTokens");
    QTest::addColumn<qint64>("docsTokens");
    QTest::newRow("one source file, deep work") << 1 << 0 << 1.4 << 21ll << 0ll;
    QTest::newRow("two source files, fragmented") << 2 << 0 << 0.6 << 18ll << 0ll;
    QTest::newRow("three documents") << 0 << 3 << 1.0 << 0ll << 24ll;
    QTest::newRow("documents earn at least one token") << 0 << 1 << 0.1 << 0ll << 1ll;
    QTest::newRow("code has no minimum") << 1 << 0 << 0.01 << 0ll << 0ll;
    QTest::newRow("both kinds in one scan") << 4 << 2 << 1.1 << 66ll << 17ll;
}

void SensingTest::sessionSizes() {
    QFETCH(int, code);
    QFETCH(int, docs);
    QFETCH(double, multiplier);
    QFETCH(qint64, codeTokens);
    QFETCH(qint64, docsTokens);

    FakeFileChangeIndex index;
    index.setPaths(numbered(m_home->filePath("src"), "swift", code) +
                   numbered(m_home->filePath("notes"), "md", docs));
    m_spotlight = makeSpotlight(index);
    QSignalSpy batches(m_store.get(), &DayStore::todayChanged);
    scan(multiplier);

    QCOMPARE(batches.count(), 1); // both sessions of a scan are handed over together
    QCOMPARE(m_store->sessions().size(), int(code > 0) + int(docs > 0));
    for (const ActivitySession& s : m_store->sessions()) {
        const bool isCode = s.appBundleID == "spotlight.source";
        QCOMPARE(s.rawTokens, isCode ? codeTokens : docsTokens);
        QCOMPARE(s.tokenType, isCode ? TokenType::reasoning : TokenType::output);
        QCOMPARE(s.endTime, Timestamp::fromDateTime(m_clock->now()));
        QCOMPARE(s.duration(), 30.0);
    }
    QCOMPARE(index.asked(), (QList<int>{600, 45})); // warm-up, then the scan's look-back
    QCOMPARE(m_multiplierReadOn,
             QThread::currentThread()); // on the main thread, when the timer fired
}

void SensingTest::skipRules() {
    const QString h = m_home->path();
    FakeFileChangeIndex index;
    index.setPaths({
        h + "/app/node_modules/left-pad/index.js", // under node_modules
        h + "/app/.git/hooks/pre-commit.sh",       // inside a repository's own folder
        h + "/app/build/gen/out.c",                // build output
        h + "/app/target/debug/main.rs",
        h + "/app/Cargo.lock", // an ignored extension, though the name looks like code
        h + "/app/yarn.LOCK",  // extensions are compared lower-cased
        h + "/app/core.o",
        h + "/app/.env",          // a hidden file has no extension
        h + "/app/photo.png",     // neither source nor document
        h + "/app/Makefile",      // no extension
        h + "/app/file.DS_Store", // lower-cased it no longer matches the ignore list
        h + "/app/Main.PY",       // source, whatever the case
        h + "/app/settings.env",  // a document
        h + "/app/README.Md",     // a document
        h + "/app/builder/x.go",  // "builder" is not "build"
    });
    m_spotlight = makeSpotlight(index);
    scan();
    QCOMPARE(sessionsOf("spotlight.source").size(), 1);
    QCOMPARE(sessionsOf("spotlight.source").first().appName, "💻 Code — 2 saves");
    QCOMPARE(sessionsOf("spotlight.docs").first().appName, "📝 Docs — 2 saves");
    QCOMPARE(m_store->sessions().size(), 2);
}

void SensingTest::savesCountOnceWhileRemembered() {
    FakeFileChangeIndex index;
    index.setPaths({m_home->filePath("a.py")});
    m_spotlight = makeSpotlight(index);
    scan();
    scan(); // still within the look-back: the same save
    QCOMPARE(sessionsOf("spotlight.source").size(), 1);

    // Thirty paths bridge one scan to the next; from a larger batch the rest drop out and
    // count again when the index lists them again (a fresh monitor: none competes for them).
    const QStringList batch = numbered(m_home->filePath("many"), "ts", 100);
    index.setPaths(batch);
    m_spotlight = makeSpotlight(index);
    scan();
    scan();
    scan();
    const QList<ActivitySession> saves = sessionsOf("spotlight.source");
    QCOMPARE(saves.size(), 4);
    QCOMPARE(saves.at(1).appName, "💻 Code — 100 saves");
    QCOMPARE(saves.at(2).appName, "💻 Code — 70 saves");
    QCOMPARE(saves.at(3).appName, "💻 Code — 70 saves");

    // An empty scan hands nothing to the store.
    index.setPaths({});
    QSignalSpy batches(m_store.get(), &DayStore::todayChanged);
    scan();
    QCOMPARE(batches.count(), 0);
}

void SensingTest::hungGitIsKilled() {
    // A stand-in for git that notes its process id and hangs.
    const QString pids = m_home->filePath("pids"), standIn = m_home->filePath("slow-git");
    QFile script(standIn);
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\necho $$ >> '" + pids.toUtf8() + "'\nexec sleep 60\n");
    script.close();
    QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    const auto started = [&pids] {
        QFile file(pids);
        return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().split('\n')
                                              : QList<QByteArray>{};
    };
    const auto gone = [](const QByteArray& pid) {
        errno = 0;
        return ::kill(pid_t(pid.toInt()), 0) == -1 && errno == ESRCH;
    };
    FakeFileChangeIndex index;
    index.setPaths({m_home->filePath("a/x.py"), m_home->filePath("b/y.py")});
    m_spotlight = makeSpotlight(index, standIn, 200); // the warm-up asks git about both folders
    scan();
    // The scan finished without a repository, and every git it started is gone.
    QCOMPARE(sessionsOf("spotlight.source").first().appName, "💻 Code — 2 saves");
    QVERIFY(m_spotlight->activeProject().isEmpty());
    QCOMPARE(started().size(), 4); // two folders at warm-up, two in the scan
    for (const QByteArray& pid : started())
        QVERIFY2(gone(pid), pid.constData());

    // Destroyed while git hangs with a long time-out: git is killed, not waited for.
    QVERIFY(QFile::remove(pids));
    m_spotlight = makeSpotlight(index, standIn, 10 * 60 * 1000);
    QTRY_VERIFY(QFileInfo(pids).size() > 0); // the warm-up's git is running
    const QByteArray hanging = started().first();
    m_spotlight.reset();
    QVERIFY(gone(hanging));
}

QTEST_GUILESS_MAIN(SensingTest)
#include "tst_sensing.moc"
