#include "BrowserAITracker.h"

#include "model/ActivitySession.h"
#include "model/AppPreferences.h"

#include <QUuid>

#include <algorithm>

namespace {

constexpr qint64 meetingTokens = 10;
constexpr qint64 aiTokens = 25;

QList<BrowserAITracker::Site> longestFirst(QList<BrowserAITracker::Site> sites) {
    std::stable_sort(sites.begin(), sites.end(), [](const auto& a, const auto& b) {
        return a.domain.size() > b.domain.size();
    });
    return sites;
}

} // namespace

BrowserAITracker::BrowserAITracker(DayStore& store, Workspace& workspace, BrowserTabSource& tabs,
                                   const Defaults& defaults, const Clock& clock, Options options,
                                   QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_workspace(workspace)
    , m_tabs(tabs)
    , m_defaults(defaults)
    , m_clock(clock)
    , m_rules(defaults)
    , m_timer(this, options.pollIntervalMs) {}

const QList<BrowserAITracker::Site>& BrowserAITracker::aiDomains() {
    static const QList<Site> sites = {
        {QStringLiteral("claude.ai"), QStringLiteral("Claude")},
        {QStringLiteral("chat.openai.com"), QStringLiteral("ChatGPT")},
        {QStringLiteral("chatgpt.com"), QStringLiteral("ChatGPT")},
        {QStringLiteral("gemini.google.com"), QStringLiteral("Gemini")},
        {QStringLiteral("copilot.microsoft.com"), QStringLiteral("Copilot")},
        {QStringLiteral("perplexity.ai"), QStringLiteral("Perplexity")},
        {QStringLiteral("poe.com"), QStringLiteral("Poe")},
        {QStringLiteral("v0.dev"), QStringLiteral("v0")},
        {QStringLiteral("huggingface.co"), QStringLiteral("HuggingFace")},
        {QStringLiteral("cursor.sh"), QStringLiteral("Cursor")},
        {QStringLiteral("aistudio.google.com"), QStringLiteral("AI Studio")},
        {QStringLiteral("deepseek.com"), QStringLiteral("DeepSeek")},
        {QStringLiteral("antigravity.google"), QStringLiteral("Antigravity")},
        {QStringLiteral("windsurf.com"), QStringLiteral("Windsurf")},
        {QStringLiteral("grok.com"), QStringLiteral("Grok")},
        {QStringLiteral("x.ai"), QStringLiteral("Grok")},
        {QStringLiteral("mistral.ai"), QStringLiteral("Mistral")},
        {QStringLiteral("bolt.new"), QStringLiteral("Bolt")},
        {QStringLiteral("lovable.dev"), QStringLiteral("Lovable")},
        {QStringLiteral("gamma.app"), QStringLiteral("Gamma")},
        {QStringLiteral("runwayml.com"), QStringLiteral("Runway")},
        {QStringLiteral("app.runway.com"), QStringLiteral("Runway")},
        {QStringLiteral("midjourney.com"), QStringLiteral("Midjourney")},
        {QStringLiteral("suno.com"), QStringLiteral("Suno")},
        {QStringLiteral("udio.com"), QStringLiteral("Udio")},
    };
    return sites;
}

const QList<BrowserAITracker::Site>& BrowserAITracker::meetingDomains() {
    static const QList<Site> sites = {
        {QStringLiteral("meet.google.com"), QStringLiteral("Google Meet")},
        {QStringLiteral("teams.microsoft.com"), QStringLiteral("Microsoft Teams")},
        {QStringLiteral("teams.live.com"), QStringLiteral("Microsoft Teams")},
        {QStringLiteral("zoom.us/j/"), QStringLiteral("Zoom")},
        {QStringLiteral("whereby.com"), QStringLiteral("Whereby")},
        {QStringLiteral("webex.com"), QStringLiteral("Webex")},
        {QStringLiteral("bluejeans.com"), QStringLiteral("BlueJeans")},
        {QStringLiteral("gotomeeting.com"), QStringLiteral("GoTo Meeting")},
    };
    return sites;
}

const QList<BrowserAITracker::Site>& BrowserAITracker::aiLookup() {
    static const QList<Site> sites = longestFirst(aiDomains());
    return sites;
}

const QList<BrowserAITracker::Site>& BrowserAITracker::meetingLookup() {
    static const QList<Site> sites = longestFirst(meetingDomains());
    return sites;
}

void BrowserAITracker::start() {
    if (AppPreferences::hasLaunched(m_defaults))
        probeForPermission();
    else
        m_waitingForOnboarding = true; // ask once the user has seen the onboarding
    m_timer.start();
}

void BrowserAITracker::stop() {
    m_timer.stop();
    ++m_round; // an answer still on its way is for a run that has ended
    m_lastURL.reset();
    m_waitingForOnboarding = false;
}

void BrowserAITracker::onboardingCompleted() {
    if (!m_waitingForOnboarding)
        return;
    m_waitingForOnboarding = false;
    probeForPermission();
}

void BrowserAITracker::probeForPermission() {
    m_tabs.probeForPermission(m_workspace.runningApplications());
}

void BrowserAITracker::poll() {
    // One question at a time: the source may answer later, or spin the event loop.
    if (m_pollInFlight)
        return;
    const std::optional<RunningApp> front = m_workspace.frontmostApplication();
    if (!front || front->bundleID.isEmpty() || !m_tabs.canAsk(*front))
        return; // only the application in front is ever asked
    m_pollInFlight = true;
    const quint64 round = m_round;
    m_tabs.requestActiveTabURL(*front, this, [this, round](std::optional<QString> url) {
        m_pollInFlight = false;
        if (round == m_round) // not stopped since the question was asked
            handleAnswer(url);
    });
}

void BrowserAITracker::handleAnswer(const std::optional<QString>& url) {
    if (!url || url->isEmpty()) {
        m_lastURL.reset(); // coming back to the same page later counts again
        return;
    }
    if (url == m_lastURL)
        return; // staying on one page records it once
    m_lastURL = url;
    processURL(*url);
}

void BrowserAITracker::processURL(const QString& url) {
    // The user's site rules come before the tables.
    if (const CategoryRule* rule = m_rules.current().siteRule(url))
        return processRule(*rule);
    // Meetings first: an address naming both kinds of site is a meeting.
    for (const Site& site : meetingLookup())
        if (url.contains(site.domain))
            return record(QStringLiteral("browser.meeting."), site, TokenType::input,
                          meetingTokens);
    for (const Site& site : aiLookup())
        if (url.contains(site.domain))
            return record(QStringLiteral("browser.ai."), site, TokenType::ai, aiTokens);
}

void BrowserAITracker::processRule(const CategoryRule& rule) {
    // A known site keeps its name; any other is shown by its domain.
    Site site{rule.match, rule.match};
    for (const Site& known : aiDomains() + meetingDomains())
        if (known.domain.compare(rule.match, Qt::CaseInsensitive) == 0)
            site.display = known.display;
    if (rule.categoryName == QLatin1String("Video Call"))
        return record(QStringLiteral("browser.meeting."), site, TokenType::input, meetingTokens);
    if (rule.categoryName == QLatin1String("AI Tool"))
        return record(QStringLiteral("browser.ai."), site, TokenType::ai, aiTokens);
    // A type and a rate: the half minute each new address stands for, at least one token.
    if (!rule.namesCategory())
        return record(QStringLiteral("browser.site."), site, rule.tokenType,
                      std::max<qint64>(rule.tokensPerMinute / 2, 1));
    // Any other category takes the site out of the tables: its time is the browser's.
}

void BrowserAITracker::record(const QString& bundlePrefix, const Site& site, TokenType type,
                              qint64 tokens) {
    const Timestamp end = Timestamp::fromDateTime(m_clock.now());
    m_store.addSession({QUuid::createUuid(), bundlePrefix + site.domain,
                        site.display + QStringLiteral(" (web)"), type, end.addSeconds(-30), end,
                        tokens});
}
