#pragma once

#include "model/CategoryRulesCache.h"
#include "platform/BrowserTabSource.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/Workspace.h"
#include "sensing/TickTimer.h"
#include "store/DayStore.h"

#include <QList>
#include <QObject>
#include <QString>

#include <optional>

// Credits time on AI assistants and web meetings open in a browser, which the
// front-application tracking can only see as time in a browser.
//
// Every poll interval it asks the tab source for the address of the front browser's active
// tab (a source may read it on another thread and answer later); a new address on a known
// meeting or AI site adds one small fixed session. Staying on one page records it once; an empty
// answer (no window, no access) forgets the address, so coming back to the page counts again.
// The user's site rules are consulted before the tables: "AI Tool" and "Video Call" make a site
// an AI or a meeting site, a type and a rate give each new address half a minute at that rate,
// any other category records nothing. Everything runs on the object's thread (the main thread).
//
// The consent probe: start() runs it at once, except on a first launch, where it waits for
// the onboarding to finish. The application connects the onboarding's
// "mindmeter.onboardingComplete" notification to onboardingCompleted().
class BrowserAITracker : public QObject {
    Q_OBJECT
public:
    struct Site {
        QString domain;
        QString display;
    };

    struct Options {
        int pollIntervalMs = 30 * 1000;
    };

    BrowserAITracker(DayStore& store, Workspace& workspace, BrowserTabSource& tabs,
                     const Defaults& defaults, const Clock& clock, Options options,
                     QObject* parent = nullptr);
    BrowserAITracker(DayStore& store, Workspace& workspace, BrowserTabSource& tabs,
                     const Defaults& defaults, const Clock& clock = Clock::system(),
                     QObject* parent = nullptr)
        : BrowserAITracker(store, workspace, tabs, defaults, clock, Options{}, parent) {}

    // Probes for consent (or waits for the onboarding), then polls every interval; the first
    // poll comes one interval after start().
    void start();
    // Stops polling, forgets the last address and stops waiting for the onboarding.
    void stop();

    // The known sites in declaration order.
    static const QList<Site>& aiDomains();
    static const QList<Site>& meetingDomains();
    // The same, longest domain first (ties keep declaration order), so the most specific
    // entry wins when several match one address.
    static const QList<Site>& aiLookup();
    static const QList<Site>& meetingLookup();

public slots:
    // The onboarding has finished ("mindmeter.onboardingComplete").
    void onboardingCompleted();

private slots:
    void poll();

private:
    void probeForPermission();
    void handleAnswer(const std::optional<QString>& url);
    void processURL(const QString& url);
    void processRule(const CategoryRule& rule);
    void record(const QString& bundlePrefix, const Site& site, TokenType type, qint64 tokens);

    DayStore& m_store;
    Workspace& m_workspace;
    BrowserTabSource& m_tabs;
    const Defaults& m_defaults;
    const Clock& m_clock;
    CategoryRulesCache m_rules;

    TickTimer<BrowserAITracker, &BrowserAITracker::poll> m_timer;
    bool m_waitingForOnboarding = false;
    std::optional<QString> m_lastURL;
    bool m_pollInFlight = false;
    quint64 m_round = 0; // counts stop()s
};
