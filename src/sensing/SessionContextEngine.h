#pragma once

#include "model/AppPreferences.h"
#include "model/CategoryRules.h"
#include "model/CategoryRulesCache.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/IdleSource.h"
#include "platform/KeptSetting.h"
#include "platform/Workspace.h"
#include "sensing/TickTimer.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class DayStore;

// Classifies the kind of work in progress — deep work, writing, messaging, … — from the
// front application, the open applications and how often the front application changed in
// the last hour. The mode's multiplier scales every token count converted from time.
class SessionContextEngine : public QObject {
    Q_OBJECT
    Q_PROPERTY(Mode mode READ mode NOTIFY modeChanged)
    Q_PROPERTY(QString modeLabel READ modeLabel NOTIFY modeChanged)
    Q_PROPERTY(QString modeSymbol READ modeSymbol NOTIFY modeChanged)
    Q_PROPERTY(double multiplier READ multiplier NOTIFY modeChanged)
    Q_PROPERTY(qint64 switchesLastHour READ switchesLastHour NOTIFY switchesLastHourChanged)

public:
    enum class Mode {
        coding,
        writing,
        communication,
        meeting,
        aiSession,
        browsing,
        switching,
        distracted,
        idle
    };
    Q_ENUM(Mode)

    static QString label(Mode mode); // also the mode's raw value
    static QString symbol(Mode mode);
    static double multiplier(Mode mode);

    static const QStringList ideIDs;
    static const QStringList terminalIDs;
    static const QStringList meetingIDs;
    static const QStringList chatIDs;
    static const QStringList aiIDs;
    static const QStringList writingIDs;
    static const QStringList browserIDs;

    struct Options {
        int tickIntervalMs = 10000;
        int runningCacheSeconds = 30;
    };

    SessionContextEngine(Workspace& workspace, IdleSource& idle, DayStore& store,
                         const Defaults& defaults, const Clock& clock, Options options,
                         QObject* parent = nullptr);
    SessionContextEngine(Workspace& workspace, IdleSource& idle, DayStore& store,
                         const Defaults& defaults, const Clock& clock, QObject* parent = nullptr)
        : SessionContextEngine(workspace, idle, store, defaults, clock, Options{}, parent) {}

    void start();
    void stop();

    Mode mode() const { return m_mode; }
    QString modeLabel() const { return label(m_mode); }
    QString modeSymbol() const { return symbol(m_mode); }
    double multiplier() const { return multiplier(m_mode); }
    qint64 switchesLastHour() const { return m_switchesLastHour; }

    // The pure classification rule, for a front identifier, the open applications and the
    // number of switches in the last hour. A user rule that names a category decides which
    // of the lists the identifiers it matches belong to: "AI Tool" the AI list, "Video Call"
    // the meeting list, "Messaging" the chat list, "Writing" and "Email" the writing list,
    // "Code Editor" the IDE list, "Browser" the browser list, any other category none.
    static Mode classify(const QString& front, const QStringList& running, qint64 switches,
                         const CategoryRules& rules = {});

signals:
    void modeChanged();
    void switchesLastHourChanged();
    // Every tick: today's temperature while the user is active, 0.0 while idle. The
    // notification manager checks it for the sustained high-temperature alert.
    void temperatureCheckRequested(double temperature);

private slots:
    void tick();

private:
    struct Switch {
        QString app;
        qint64 elapsedMs; // on the elapsed-time clock: a wall clock set does not age it
    };

    QStringList runningBundleIDs();

    // What the mode was last worked out from, and the answer.
    // What the mode was last worked out from, besides the application in front (a change of
    // which is a switch, seen by the tick anyway).
    struct Classified {
        QStringList running;
        qint64 switches = 0;
        quint64 rulesRevision = 0;
        Mode mode = Mode::idle;
        bool sameInputs(const Classified& o) const {
            return switches == o.switches && rulesRevision == o.rulesRevision &&
                   running == o.running;
        }
    };

    Workspace& m_workspace;
    IdleSource& m_idle;
    DayStore& m_store;
    const Defaults& m_defaults;
    const Clock& m_clock;
    Options m_options;
    CategoryRulesCache m_rules;
    KeptSetting<double> m_idleTimeout{m_defaults, &AppPreferences::idleTimeout};

    Mode m_mode = Mode::idle;
    qint64 m_switchesLastHour = 0;
    // What was last handed to the event loop to publish, so an unchanged tick posts nothing.
    std::optional<std::pair<Mode, qint64>> m_pending;
    TickTimer<SessionContextEngine, &SessionContextEngine::tick> m_timer{this,
                                                                         m_options.tickIntervalMs};
    QList<Switch> m_switchLog;
    QString m_lastFrontApp;
    QStringList m_cachedRunning;
    QList<RunningApp> m_runningSeen; // what m_cachedRunning was made from
    std::optional<Classified> m_classified;
    bool m_toldIdle = false;
    // On the elapsed-time clock: asking it reads no time zone.
    std::optional<qint64> m_lastRunningFetchMs;
};
