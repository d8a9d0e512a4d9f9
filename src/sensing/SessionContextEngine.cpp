#include "SessionContextEngine.h"

#include "model/AppPreferences.h"
#include "store/DayStore.h"

#include <algorithm>

namespace {

bool startsWithAny(const QString& id, const QStringList& prefixes) {
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&](const QString& p) { return id.startsWith(p); });
}

// Whether an identifier is on one of the lists: a rule naming a category decides for the
// identifiers it matches, the fixed prefixes for all others.
struct ModeList {
    const QStringList& prefixes;
    QStringList categories;

    bool contains(const QString& id, const CategoryRules& rules) const {
        if (const CategoryRule* rule = rules.appRule(id); rule && rule->namesCategory())
            return categories.contains(rule->categoryName);
        return startsWithAny(id, prefixes);
    }
};

} // namespace

const QStringList SessionContextEngine::ideIDs = {
    "com.apple.dt.Xcode", "com.microsoft.VSCode", "com.jetbrains",        "io.cursor",
    "com.sublimetext",    "com.panic.Nova",       "dev.warp.Warp-Stable", "com.todesktop"};
// The fourth entry is kitty, a terminal found on both platforms.
const QStringList SessionContextEngine::terminalIDs = {
    "com.apple.Terminal", "com.googlecode.iterm2", "dev.warp", "net.kovidgoyal.kitty"};
const QStringList SessionContextEngine::meetingIDs = {
    "us.zoom.xos", "com.apple.FaceTime", "com.microsoft.teams",
    "com.webex",   "com.loom",           "com.whereby"};
const QStringList SessionContextEngine::chatIDs = {
    "com.tinyspeck.slackmacgap", "com.discord",         "com.telegram.desktop",
    "com.apple.iChat",           "com.apple.MobileSMS", "com.microsoft.teams"};
const QStringList SessionContextEngine::aiIDs = {"com.anthropic", "claude", "com.openai",
                                                 "com.todesktop.230313mzl4w4u92"};
const QStringList SessionContextEngine::writingIDs = {
    "com.apple.Pages", "com.microsoft.Word",   "md.obsidian",
    "notion.id",       "com.notion",           "com.craftsmanSoftware.CraftDocs",
    "com.apple.mail",  "com.microsoft.Outlook"};
const QStringList SessionContextEngine::browserIDs = {
    "com.apple.Safari", "com.google.Chrome", "org.mozilla.firefox", "company.thebrowser.Browser",
    "com.microsoft.edgemac"};

QString SessionContextEngine::label(Mode mode) {
    switch (mode) {
    case Mode::coding:
        return QStringLiteral("Deep Work");
    case Mode::writing:
        return QStringLiteral("Writing");
    case Mode::communication:
        return QStringLiteral("Messaging");
    case Mode::meeting:
        return QStringLiteral("Meeting");
    case Mode::aiSession:
        return QStringLiteral("AI Session");
    case Mode::browsing:
        return QStringLiteral("Browsing");
    case Mode::switching:
        return QStringLiteral("Switching");
    case Mode::distracted:
        return QStringLiteral("Fragmented");
    case Mode::idle:
        return QStringLiteral("Idle");
    }
    Q_UNREACHABLE();
}

QString SessionContextEngine::symbol(Mode mode) {
    switch (mode) {
    case Mode::coding:
        return QStringLiteral("chevron.left.forwardslash.chevron.right");
    case Mode::writing:
        return QStringLiteral("pencil");
    case Mode::communication:
        return QStringLiteral("bubble.left.and.bubble.right");
    case Mode::meeting:
        return QStringLiteral("video");
    case Mode::aiSession:
        return QStringLiteral("sparkles");
    case Mode::browsing:
        return QStringLiteral("globe");
    case Mode::switching:
        return QStringLiteral("arrow.left.arrow.right");
    case Mode::distracted:
        return QStringLiteral("arrow.triangle.2.circlepath");
    case Mode::idle:
        return QStringLiteral("moon");
    }
    Q_UNREACHABLE();
}

double SessionContextEngine::multiplier(Mode mode) {
    switch (mode) {
    case Mode::coding:
        return 1.4;
    case Mode::meeting:
        return 1.1;
    case Mode::aiSession:
        return 1.2;
    case Mode::switching:
        return 0.8;
    case Mode::distracted:
        return 0.6;
    case Mode::writing:
    case Mode::communication:
    case Mode::browsing:
    case Mode::idle:
        return 1.0;
    }
    Q_UNREACHABLE();
}

SessionContextEngine::SessionContextEngine(Workspace& workspace, IdleSource& idle, DayStore& store,
                                           const Defaults& defaults, const Clock& clock,
                                           Options options, QObject* parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_idle(idle)
    , m_store(store)
    , m_defaults(defaults)
    , m_clock(clock)
    , m_options(options)
    , m_rules(defaults) {}

void SessionContextEngine::start() {
    m_timer.start();
}

void SessionContextEngine::stop() {
    m_timer.stop();
}

QStringList SessionContextEngine::runningBundleIDs() {
    const qint64 nowMs = m_clock.elapsedMs();
    if (m_lastRunningFetchMs && nowMs - *m_lastRunningFetchMs >= 0 &&
        nowMs - *m_lastRunningFetchMs < qint64(m_options.runningCacheSeconds) * 1000)
        return m_cachedRunning;
    m_lastRunningFetchMs = nowMs;
    // The list kept stays the same object while the desktop's is the same: what compares
    // with it later then finds it equal at a glance.
    const QList<RunningApp> apps = m_workspace.runningApplications();
    if (apps == m_runningSeen)
        return m_cachedRunning;
    m_runningSeen = apps;
    m_cachedRunning.clear();
    for (const RunningApp& app : apps)
        if (app.isRegular && !app.bundleID.isEmpty())
            m_cachedRunning.append(app.bundleID);
    return m_cachedRunning;
}

SessionContextEngine::Mode SessionContextEngine::classify(const QString& front,
                                                          const QStringList& running,
                                                          qint64 switches,
                                                          const CategoryRules& rules) {
    static const ModeList ai{aiIDs, {QStringLiteral("AI Tool")}};
    static const ModeList meeting{meetingIDs, {QStringLiteral("Video Call")}};
    static const ModeList chat{chatIDs, {QStringLiteral("Messaging")}};
    static const ModeList writing{writingIDs, {QStringLiteral("Writing"), QStringLiteral("Email")}};
    static const ModeList ide{ideIDs, {QStringLiteral("Code Editor")}};
    static const ModeList browser{browserIDs, {QStringLiteral("Browser")}};
    if (switches > 14)
        return Mode::distracted;
    if (switches > 7)
        return Mode::switching;
    if (ai.contains(front, rules))
        return Mode::aiSession;
    if (meeting.contains(front, rules))
        return Mode::meeting;
    if (chat.contains(front, rules))
        return Mode::communication;
    if (writing.contains(front, rules))
        return Mode::writing;
    // An open IDE anywhere makes otherwise unclassified work deep work.
    if (ide.contains(front, rules) ||
        std::any_of(running.begin(), running.end(),
                    [&](const QString& id) { return ide.contains(id, rules); }))
        return Mode::coding;
    if (browser.contains(front, rules))
        return Mode::browsing;
    return Mode::idle;
}

void SessionContextEngine::tick() {
    // Only the elapsed-time clock: an idle tick computes no local time, which would look the
    // time zone up again.
    const qint64 nowMs = m_clock.elapsedMs();
    const std::optional<RunningApp> frontApp = m_workspace.frontmostApplication();
    const QString front = frontApp ? frontApp->bundleID : QString();
    const QStringList running = runningBundleIDs();

    // A change is logged under the application that was left. The same application's name
    // is most often the very same string, known to be equal without comparing it.
    const bool sameAtAGlance =
        front.isSharedWith(m_lastFrontApp) || (front.isEmpty() && m_lastFrontApp.isEmpty());
    const bool frontChanged = !sameAtAGlance && front != m_lastFrontApp;
    if (frontChanged) {
        if (!m_lastFrontApp.isEmpty())
            m_switchLog.append({m_lastFrontApp, nowMs});
        m_lastFrontApp = front;
    }

    m_switchLog.removeIf([&](const Switch& s) { return nowMs - s.elapsedMs > 3600 * 1000; });
    const qint64 count = m_switchLog.size();
    const CategoryRules& rules = m_rules.current();
    // Most ticks, an idle stretch's above all, change nothing the mode depends on.
    const Classified inputs{running, count, m_rules.revision(), Mode::idle};
    if (frontChanged || !m_classified || !m_classified->sameInputs(inputs)) {
        m_classified = inputs;
        m_classified->mode = classify(front, running, count, rules);
    }
    const Mode mode = m_classified->mode;

    // Published on a later turn of the event loop, and only when it changed; dropped if the
    // engine is gone by then.
    if (m_pending != std::pair(mode, count)) {
        m_pending = std::pair(mode, count);
        QMetaObject::invokeMethod(
            this,
            [this, mode, count] {
                m_mode = mode;
                emit modeChanged();
                m_switchesLastHour = count;
                emit switchesLastHourChanged();
            },
            Qt::QueuedConnection);
    }

    // An idle user never gets the high-temperature alert; the check hears so once a stretch.
    const bool active = m_idle.secondsSinceLastInput() <= m_idleTimeout();
    if (active || !m_toldIdle)
        emit temperatureCheckRequested(active ? m_store.temperature() : 0.0);
    m_toldIdle = !active;
}
