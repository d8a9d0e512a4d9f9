#pragma once

#include <QObject>
#include <QThread>
#include <QTimer>

#include <memory>

class ActivityMonitor;
class AppIdentityResolver;
class BrowserAITracker;
class Clock;
class DayStore;
class Defaults;
class DesktopEntryIndex;
class ChromiumTabSource;
class CompositeTabSource;
class FirefoxTabSource;
class InotifyFileChangeIndex;
class RecentIdleSource;
class SessionContextEngine;
class SpotlightMonitor;
class Workspace;
struct DesktopBackend;

// Every source of tokens on a Linux desktop, made around one day store and started and
// stopped in a fixed order: the activity monitor, the repository monitor, the working-mode
// engine, the browser tracker. Shared by the tray app and `mindmeter track`.
class Sensors : public QObject {
    Q_OBJECT
public:
    struct Options {
        // Each tick of the monitor and the engine counts ten seconds whatever its interval.
        int tickIntervalMs = 10000;
    };

    Sensors(DayStore& store, Defaults& defaults, const Clock& clock, QObject* parent = nullptr);
    ~Sensors() override;

    // Connects to the desktop and makes the sensors. False, with the reason in *error, when
    // the desktop cannot be followed.
    bool create(Options options, QString* error);
    void start();
    // Stops in the order of starting; what the monitor gathered is handed to the store.
    void stop();

    Workspace& workspace() const;
    // How the desktop is followed, in one line, and what that way cannot see.
    QString backendDescription() const;
    QStringList backendNotes() const;
    SessionContextEngine& context() const { return *m_context; }
    ActivityMonitor& monitor() const { return *m_monitor; }
    SpotlightMonitor& spotlight() const { return *m_spotlight; }
    BrowserAITracker& browser() const { return *m_browser; }

private:
    static constexpr int handBackDelayMs = 30000;

    DayStore& m_store;
    Defaults& m_defaults;
    const Clock& m_clock;
    bool m_running = false;

    std::unique_ptr<DesktopEntryIndex> m_entries;
    std::unique_ptr<AppIdentityResolver> m_resolver;
    std::unique_ptr<DesktopBackend> m_desktop;
    std::unique_ptr<RecentIdleSource> m_idle; // in front of the desktop's idle source
    std::unique_ptr<SessionContextEngine> m_context;
    std::unique_ptr<ActivityMonitor> m_monitor;
    QThread m_fileThread; // the file-change index reads its events here
    InotifyFileChangeIndex* m_files = nullptr;
    std::unique_ptr<SpotlightMonitor> m_spotlight;
    std::unique_ptr<FirefoxTabSource> m_firefox;
    std::unique_ptr<ChromiumTabSource> m_chromium;
    std::unique_ptr<CompositeTabSource> m_tabs; // reads through the two above; goes first
    std::unique_ptr<BrowserAITracker> m_browser;
    QTimer m_handBack; // memory handed back when start-up or a break has settled
};
