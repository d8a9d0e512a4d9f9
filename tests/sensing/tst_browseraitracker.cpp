#include "FakeClock.h"
#include "FakeDesktop.h"
#include "Sessions.h"

#include "model/AppPreferences.h"
#include "model/CategoryRules.h"
#include "sensing/BrowserAITracker.h"
#include "store/SqliteDefaults.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

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
        if (duringAsk)
            duringAsk();
        return url;
    }
    void probeForPermission(const QList<RunningApp>& running) override { probes.append(running); }
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
    QList<QList<RunningApp>> probes;
    std::function<void()> duringAsk;
};

} // namespace

class BrowserAITrackerTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void sitesAreRecognised_data();
    void sitesAreRecognised();
    void sameAddressCountsOnce();
    void onlyTheFrontBrowserIsAsked();
    void pollInsideAPollDoesNothing();
    void permissionProbeWaitsForOnboarding();
    void stopForgetsTheAddressAndPollsStartOneIntervalLater();
    void answersComeLater();

private:
    void poll(const std::optional<QString>& url);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<SqliteDefaults> m_db;
    std::unique_ptr<FakeClock> m_clock;
    std::unique_ptr<DayStore> m_store;
    std::unique_ptr<FakeWorkspace> m_workspace;
    std::unique_ptr<FakeTabSource> m_tabs;
    std::unique_ptr<BrowserAITracker> m_tracker;
};

void BrowserAITrackerTest::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    m_db = SqliteDefaults::open(m_dir->filePath(QStringLiteral("data.sqlite3")));
    QVERIFY(m_db);
    m_clock = std::make_unique<FakeClock>(local(2026, 5, 30, 10));
    m_store = std::make_unique<DayStore>(*m_db, *m_clock);
    m_workspace = std::make_unique<FakeWorkspace>();
    m_workspace->front = app(QStringLiteral("test.browser"));
    m_tabs = std::make_unique<FakeTabSource>();
    BrowserAITracker::Options options;
    options.pollIntervalMs = 60 * 60 * 1000; // polls are triggered by the test
    m_tracker = std::make_unique<BrowserAITracker>(*m_store, *m_workspace, *m_tabs, *m_db, *m_clock,
                                                   options);
}

void BrowserAITrackerTest::cleanup() {
    m_tracker.reset();
    m_store.reset();
}

void BrowserAITrackerTest::poll(const std::optional<QString>& url) {
    m_tabs->url = url;
    QVERIFY(QMetaObject::invokeMethod(m_tracker.get(), "poll"));
    settle();
}

void BrowserAITrackerTest::sitesAreRecognised_data() {
    QTest::addColumn<QString>("rules");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("recorded"); // "bundle id | name | type | raw tokens", or empty
    const auto row = [](const char* tag, const char* rules, const char* url, const char* seen) {
        QTest::newRow(tag) << rules << url << seen;
    };
    const char* chatGpt = "browser.ai.chatgpt.com | ChatGPT (web) | ai | 25";
    row("ChatGPT, any path", "[]", "https://chatgpt.com/c/6650-abc?model=x", chatGpt);
    row("old ChatGPT domain", "[]", "https://chat.openai.com/",
        "browser.ai.chat.openai.com | ChatGPT (web) | ai | 25");
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

void BrowserAITrackerTest::sitesAreRecognised() {
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

void BrowserAITrackerTest::sameAddressCountsOnce() {
    const QString claude = QStringLiteral("https://claude.ai/chat/1");
    poll(claude);
    poll(claude);
    QCOMPARE(m_store->sessions().size(), 1);
    poll(QStringLiteral("https://claude.ai/chat/2")); // a new address on the same site
    QCOMPARE(m_store->sessions().size(), 2);
    poll(std::nullopt); // no window, or no answer
    poll(QStringLiteral("https://claude.ai/chat/2"));
    QCOMPARE(m_store->sessions().size(), 3);
    poll(QString()); // an empty answer forgets the address too
    poll(QStringLiteral("https://claude.ai/chat/2"));
    QCOMPARE(m_store->sessions().size(), 4);
    poll(QStringLiteral("https://example.org/")); // remembered even when not a known site
    poll(QStringLiteral("https://claude.ai/chat/2"));
    QCOMPARE(m_store->sessions().size(), 5);
}

void BrowserAITrackerTest::onlyTheFrontBrowserIsAsked() {
    const QString chat = QStringLiteral("https://chatgpt.com/");
    poll(chat);
    QCOMPARE(m_tabs->asked.size(), 1);
    QCOMPARE(m_tabs->asked.first().bundleID, "test.browser");

    m_workspace->front = app(QStringLiteral("org.gnu.Emacs")); // no way to ask it
    poll(chat);
    m_workspace->front.reset(); // nothing in front
    poll(chat);
    m_workspace->front = app(QString()); // an application without an identifier
    poll(chat);
    QCOMPARE(m_tabs->asked.size(), 1);

    // Time in another application does not forget the page: back on it, nothing new.
    m_workspace->front = app(QStringLiteral("test.browser.beta"));
    poll(chat);
    QCOMPARE(m_tabs->asked.size(), 2);
    QCOMPARE(m_store->sessions().size(), 1);
}

void BrowserAITrackerTest::pollInsideAPollDoesNothing() {
    // Asking may run the event loop, which may fire the timer again.
    m_tabs->duringAsk = [this] {
        QVERIFY(QMetaObject::invokeMethod(m_tracker.get(), "poll", Qt::DirectConnection));
    };
    poll(QStringLiteral("https://perplexity.ai/search"));
    QCOMPARE(m_tabs->asked.size(), 1);
    QCOMPARE(m_store->sessions().size(), 1);
    m_tabs->duringAsk = nullptr;
    poll(QStringLiteral("https://poe.com/")); // and the flag was cleared
    QCOMPARE(m_tabs->asked.size(), 2);
}

void BrowserAITrackerTest::permissionProbeWaitsForOnboarding() {
    m_workspace->running = {app("org.gnome.Nautilus"), app("test.browser")};

    // First launch: nothing until the onboarding has finished, then exactly once.
    m_tracker->start();
    QVERIFY(m_tabs->probes.isEmpty());
    m_tracker->onboardingCompleted();
    QCOMPARE(m_tabs->probes.size(), 1);
    QCOMPARE(m_tabs->probes.first(), m_workspace->running);
    m_tracker->onboardingCompleted();
    QCOMPARE(m_tabs->probes.size(), 1);

    // Stopped before the onboarding finished: no probe afterwards.
    m_tracker->stop();
    m_tracker->start();
    m_tracker->stop();
    m_tracker->onboardingCompleted();
    QCOMPARE(m_tabs->probes.size(), 1);

    // Launched before: the probe runs at once.
    QVERIFY(m_db->setBool(AppPreferences::hasLaunchedBefore, true));
    m_tracker->start();
    QCOMPARE(m_tabs->probes.size(), 2);
    m_tracker->onboardingCompleted();
    QCOMPARE(m_tabs->probes.size(), 2);
}

void BrowserAITrackerTest::stopForgetsTheAddressAndPollsStartOneIntervalLater() {
    const QString gemini = QStringLiteral("https://gemini.google.com/app");
    poll(gemini);
    m_tracker->stop();
    poll(gemini);
    QCOMPARE(m_store->sessions().size(), 2);

    BrowserAITracker::Options options;
    options.pollIntervalMs = 20;
    BrowserAITracker timed(*m_store, *m_workspace, *m_tabs, *m_db, *m_clock, options);
    m_tabs->asked.clear();
    m_tabs->url = QStringLiteral("https://mistral.ai/chat");
    timed.start();
    QVERIFY(m_tabs->asked.isEmpty());       // no poll at start
    QTRY_VERIFY(m_tabs->asked.size() >= 2); // then one every interval
    timed.stop();
    QCOMPARE(m_store->sessions().last().appBundleID, "browser.ai.mistral.ai");
}

void BrowserAITrackerTest::answersComeLater() {
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

QTEST_GUILESS_MAIN(BrowserAITrackerTest)
#include "tst_browseraitracker.moc"
