#pragma once

#include "model/AppCategory.h"
#include "model/AppPreferences.h"
#include "model/CategoryRulesCache.h"
#include "model/TokenType.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/IdleSource.h"
#include "platform/KeptSetting.h"
#include "platform/Workspace.h"
#include "sensing/TickTimer.h"

#include <QDateTime>
#include <QObject>
#include <QVariantList>

#include <functional>
#include <optional>

class DayStore;

// The main loop: follows the front application on a ten-second tick while the user is at
// the keyboard, turns each minute there into tokens at the application's rate times the
// working mode's multiplier, and hands the result to the day store. Coming back from a
// break of 10 to 120 minutes gives tokens back. The user's category rules are consulted
// before the registry; a change to them applies from the next converted minute.
class ActivityMonitor : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString currentApp READ currentApp NOTIFY currentAppChanged)
    Q_PROPERTY(QString currentType READ currentTypeRaw NOTIFY currentTypeChanged)
    Q_PROPERTY(qint64 currentRate READ currentRate NOTIFY currentRateChanged)
    Q_PROPERTY(bool isTracking READ isTracking NOTIFY isTrackingChanged)
    Q_PROPERTY(qint64 tokenVelocity READ tokenVelocity NOTIFY tokenVelocityChanged)
    Q_PROPERTY(QVariantList hourlyData READ hourlyData NOTIFY hourlyDataChanged)

public:
    // This program's own identifier: bringing its own windows to the front is not a switch.
    static constexpr char ownBundleID[] = "com.mindmeter.Mindmeter";

    struct Options {
        // Each tick counts as ten seconds of activity, however often it runs.
        int tickIntervalMs = 10000;
        int claudeCheckSeconds = 30;
        QString ownBundleID = QString::fromLatin1(ActivityMonitor::ownBundleID);
        // Whether the command-line AI assistant is running; called off the main thread.
        std::function<bool()> claudeProcessRunning = &ActivityMonitor::claudeProcessRunning;
    };

    // multiplier: the current working mode's factor, read at each conversion.
    ActivityMonitor(DayStore& store, Workspace& workspace, IdleSource& idle,
                    const Defaults& defaults, const Clock& clock,
                    std::function<double()> multiplier, Options options, QObject* parent = nullptr);

    void start();
    void stop();

    QString currentApp() const { return m_currentApp; }
    TokenType currentType() const { return m_currentType; }
    QString currentTypeRaw() const { return TokenTypes::rawValue(m_currentType); }
    qint64 currentRate() const { return m_currentRate; }
    bool isTracking() const { return m_isTracking; }
    qint64 tokenVelocity() const;
    QVariantList hourlyData() const;

    // Runs `pgrep -x claude` and waits for it: true when a process of exactly that name runs.
    static bool claudeProcessRunning();

signals:
    void currentAppChanged();
    void currentTypeChanged();
    void currentRateChanged();
    void isTrackingChanged();
    void tokenVelocityChanged();
    void hourlyDataChanged();
    // The user has been away longer than the idle time-out: once a break, at its first idle
    // tick.
    void breakStarted();

private slots:
    void tick();
    void appActivated(const RunningApp& app);
    // The desktop has no application in front: the stay ends as a switch would end it, and
    // nothing is counted until an application comes forward.
    void nothingInFront();

private:
    void beginSession(const std::optional<RunningApp>& app);
    void flush(double minutes, const AppCategory& category);
    bool isClaudeCodeActive();
    void flushAccumulated();
    AppCategory resolveCategory(const QString& bundleID);
    // After the user's rules changed: the stay goes on under the category they now give.
    void followRuleChange();
    void publishCategory(const AppCategory& category);
    void publish(const QString& name, TokenType type, qint64 rate);

    DayStore& m_store;
    Workspace& m_workspace;
    IdleSource& m_idle;
    const Defaults& m_defaults;
    const Clock& m_clock;
    std::function<double()> m_multiplier;
    Options m_options;

    QString m_currentApp = QStringLiteral("\u2014");
    TokenType m_currentType = TokenType::input;
    qint64 m_currentRate = 0;
    bool m_isTracking = false;

    TickTimer<ActivityMonitor, &ActivityMonitor::tick> m_tickTimer{this, m_options.tickIntervalMs};
    std::optional<RunningApp> m_frontApp;
    QDateTime m_sessionStart;
    double m_accumulatedSecs = 0;
    std::optional<AppCategory> m_currentCategory;
    CategoryRulesCache m_rules;
    KeptSetting<double> m_idleTimeout{m_defaults, &AppPreferences::idleTimeout};
    quint64 m_categoryRulesRevision = 0; // of the rules m_currentCategory was resolved with
    std::optional<qint64> m_idleStartMs; // on the clock's elapsed-time scale
    bool m_claudeCodeRunning = false;
    std::optional<qint64> m_claudeCheckMs; // on the clock's elapsed-time scale
};
