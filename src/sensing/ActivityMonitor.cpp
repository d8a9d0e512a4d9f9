#include "ActivityMonitor.h"

#include "model/AppPreferences.h"
#include "store/DayStore.h"
#include "store/HistoryRows.h"

#include <QCoreApplication>
#include <QPointer>
#include <QProcess>
#include <QThreadPool>
#include <QUuid>

#include <algorithm>
#include <cmath>

ActivityMonitor::ActivityMonitor(DayStore& store, Workspace& workspace, IdleSource& idle,
                                 const Defaults& defaults, const Clock& clock,
                                 std::function<double()> multiplier, Options options,
                                 QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_workspace(workspace)
    , m_idle(idle)
    , m_defaults(defaults)
    , m_clock(clock)
    , m_multiplier(std::move(multiplier))
    , m_options(std::move(options))
    , m_sessionStart(clock.now())
    , m_rules(defaults) {
    connect(&m_store, &DayStore::historyPublished, this, [this] {
        emit tokenVelocityChanged();
        emit hourlyDataChanged();
    });
    // A change made here or by another process (an empty key) may be a change of the rules.
    connect(&m_defaults, &Defaults::valueChanged, this, [this](const QString& key) {
        if (key.isEmpty() || key == CategoryRules::key)
            followRuleChange();
    });
}

qint64 ActivityMonitor::tokenVelocity() const {
    return m_store.history().cachedVelocity;
}

QVariantList ActivityMonitor::hourlyData() const {
    return HistoryRows::hours(m_store.history().cachedHourlyBuckets);
}

void ActivityMonitor::start() {
    m_isTracking = true;
    emit isTrackingChanged();
    connect(&m_workspace, &Workspace::applicationActivated, this, &ActivityMonitor::appActivated,
            Qt::UniqueConnection);
    connect(&m_workspace, &Workspace::nothingInFront, this, &ActivityMonitor::nothingInFront,
            Qt::UniqueConnection);
    m_tickTimer.start();
    if (const std::optional<RunningApp> front = m_workspace.frontmostApplication())
        beginSession(front);
}

void ActivityMonitor::stop() {
    m_isTracking = false;
    emit isTrackingChanged();
    m_tickTimer.stop();
    disconnect(&m_workspace, &Workspace::applicationActivated, this,
               &ActivityMonitor::appActivated);
    disconnect(&m_workspace, &Workspace::nothingInFront, this, &ActivityMonitor::nothingInFront);
    flushAccumulated();
    m_accumulatedSecs = 0;
}

void ActivityMonitor::flushAccumulated() {
    followRuleChange();
    if (m_currentCategory && m_accumulatedSecs >= 5)
        flush(m_accumulatedSecs / 60.0, *m_currentCategory);
}

void ActivityMonitor::tick() {
    const double idleSeconds = m_idle.secondsSinceLastInput();
    const double timeout = m_idleTimeout();

    if (idleSeconds <= timeout) {
        // Only discards time gathered while no category was set.
        if (m_accumulatedSecs > 3600)
            m_accumulatedSecs = 0;
        if (m_idleStartMs) {
            // Measured on the elapsed-time clock: a wall clock set during the break does not
            // lengthen or shorten it, and a sleep of the machine counts as break.
            const double idleMinutes = double(m_clock.elapsedMs() - *m_idleStartMs) / 60000.0;
            m_idleStartMs.reset();
            // Breaks of 10 to under 120 minutes earn 30 tokens a minute beyond the first
            // ten, at most 1,800; a night or a weekend earns nothing.
            if (idleMinutes >= 10 && idleMinutes < 120) {
                const auto recovery = qint64(std::min(idleMinutes - 10, 60.0) * 30);
                if (recovery >= 1)
                    m_store.recoverTokens(recovery);
            }
        }
        m_accumulatedSecs += 10; // a tick counts ten seconds, whatever the wall clock says
        if (m_currentCategory && m_accumulatedSecs >= 60) {
            followRuleChange();
            const double whole = std::trunc(m_accumulatedSecs / 60);
            m_accumulatedSecs = std::fmod(m_accumulatedSecs, 60);
            flush(whole, *m_currentCategory);
        }
        return;
    }

    if (!m_idleStartMs) {
        m_idleStartMs = m_clock.elapsedMs();
        flushAccumulated();
        m_accumulatedSecs = 0;
        emit breakStarted();
    }
}

void ActivityMonitor::appActivated(const RunningApp& app) {
    // Opening this program's own windows does not end the stay in the previous application.
    if (app.bundleID == m_options.ownBundleID)
        return;
    flushAccumulated();
    m_accumulatedSecs = 0;
    beginSession(app);
}

void ActivityMonitor::nothingInFront() {
    if (!m_frontApp && !m_currentCategory)
        return;
    flushAccumulated();
    m_accumulatedSecs = 0;
    m_frontApp.reset();
    m_currentCategory.reset();
    m_sessionStart = m_clock.now();
    publish(QStringLiteral("\u2014"), TokenType::input, 0);
}

void ActivityMonitor::beginSession(const std::optional<RunningApp>& app) {
    m_frontApp = app;
    m_sessionStart = m_clock.now();
    m_accumulatedSecs = 0;

    const QString id = app ? app->bundleID : QString();
    AppCategory resolved = resolveCategory(id);
    if (resolved.isTerminal && isClaudeCodeActive())
        resolved = AppCategory{{id}, TokenType::ai, 50, QStringLiteral("Claude Code"), false};
    m_currentCategory = resolved;

    publishCategory(resolved);
}

AppCategory ActivityMonitor::resolveCategory(const QString& bundleID) {
    const CategoryRules& rules = m_rules.current();
    m_categoryRulesRevision = m_rules.revision();
    return rules.categoryFor(bundleID);
}

void ActivityMonitor::followRuleChange() {
    if (!m_currentCategory)
        return;
    m_rules.current();
    if (m_rules.revision() == m_categoryRulesRevision)
        return;
    const QString id = m_frontApp ? m_frontApp->bundleID : QString();
    AppCategory resolved = resolveCategory(id);
    // The cached answer only: a rule change starts no process check of its own.
    if (resolved.isTerminal && m_claudeCodeRunning)
        resolved = AppCategory{{id}, TokenType::ai, 50, QStringLiteral("Claude Code"), false};
    m_currentCategory = resolved;
    publishCategory(resolved);
}

void ActivityMonitor::publishCategory(const AppCategory& category) {
    QString name = m_frontApp ? m_frontApp->localizedName : QString();
    if (name.isEmpty())
        name = m_frontApp && !m_frontApp->bundleID.isEmpty() ? m_frontApp->bundleID
                                                             : QStringLiteral("Unknown");
    publish(name, category.tokenType, category.tokensPerMinute);
}

void ActivityMonitor::publish(const QString& name, TokenType type, qint64 rate) {
    QMetaObject::invokeMethod(
        this,
        [this, name, type, rate] {
            m_currentApp = name;
            emit currentAppChanged();
            m_currentType = type;
            emit currentTypeChanged();
            m_currentRate = rate;
            emit currentRateChanged();
        },
        Qt::QueuedConnection);
}

void ActivityMonitor::flush(double minutes, const AppCategory& category) {
    if (!m_frontApp || category.tokensPerMinute < 1)
        return;
    const double raw = double(category.tokensPerMinute) * minutes * m_multiplier();
    const qint64 count = std::max<qint64>(qint64(raw), 1);
    const QString bundle =
        m_frontApp->bundleID.isEmpty() ? QStringLiteral("unknown") : m_frontApp->bundleID;
    const QString name =
        m_frontApp->localizedName.isEmpty() ? QStringLiteral("Unknown") : m_frontApp->localizedName;
    m_store.addSession(ActivitySession{QUuid::createUuid(), bundle, name, category.tokenType,
                                       Timestamp::fromDateTime(m_sessionStart),
                                       Timestamp::fromDateTime(m_clock.now()), count});
}

bool ActivityMonitor::isClaudeCodeActive() {
    const qint64 now = m_clock.elapsedMs();
    if (!m_claudeCheckMs || now - *m_claudeCheckMs >= qint64(m_options.claudeCheckSeconds) * 1000) {
        m_claudeCheckMs = now;
        QPointer<ActivityMonitor> self(this);
        std::function<bool()> check = m_options.claudeProcessRunning;
        // The check blocks while the process runs, so it never runs on the main thread; the
        // answer is stored on the main thread, and only if the monitor still exists.
        QThreadPool::globalInstance()->start([self, check] {
            const bool running = check();
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [self, running] {
                    if (self)
                        self->m_claudeCodeRunning = running;
                },
                Qt::QueuedConnection);
        });
    }
    return m_claudeCodeRunning;
}

bool ActivityMonitor::claudeProcessRunning() {
    QProcess pgrep;
    pgrep.setStandardOutputFile(QProcess::nullDevice());
    pgrep.setStandardErrorFile(QProcess::nullDevice());
    pgrep.start(QStringLiteral("/usr/bin/pgrep"), {QStringLiteral("-x"), QStringLiteral("claude")});
    if (!pgrep.waitForStarted() || !pgrep.waitForFinished(10000))
        return false;
    return pgrep.exitStatus() == QProcess::NormalExit && pgrep.exitCode() == 0;
}
