#pragma once

#include "AppIdentityResolver.h"

#include "platform/Workspace.h"

#include <QHash>
#include <QSocketNotifier>

#include <memory>

struct xcb_connection_t;
class LogindWakeWatcher;

// The workspace of an X11 desktop, read through EWMH: the window manager announces the
// active window in _NET_ACTIVE_WINDOW and the managed windows in _NET_CLIENT_LIST on the
// root window. Changes arrive as PropertyNotify events read from the connection's socket in
// the Qt event loop; nothing is polled. The active window and the list of open applications
// are kept from those events, so asking for them costs no round trip to the server unless
// they changed.
class X11Workspace final : public Workspace {
    Q_OBJECT
public:
    ~X11Workspace() override;

    // Connects to $DISPLAY. Returns null, with the reason in *error, when there is no X
    // server to talk to.
    static std::unique_ptr<X11Workspace> open(AppIdentityResolver& resolver, QString* error);

    std::optional<RunningApp> frontmostApplication() const override;
    QList<RunningApp> runningApplications() const override;

    // True when the window manager publishes the active window (an EWMH window manager runs).
    bool hasActiveWindowSupport() const;

private slots:
    void readEvents();

private:
    X11Workspace(xcb_connection_t* connection, int screen, AppIdentityResolver& resolver);
    quint32 atom(const char* name) const;
    QByteArray property(quint32 window, quint32 property, quint32 type,
                        quint32 maxLongs = 1024) const;
    QList<quint32> windowList(quint32 window, quint32 property) const;
    quint32 activeWindow() const;
    std::optional<RunningApp> appForWindow(quint32 window) const;
    bool isTaskbarWindow(quint32 window) const;
    void scheduleEventDrain() const;
    // Takes the events already received (with readSocket, also those waiting in the socket);
    // true when the active window changed.
    bool takeEvents(bool readSocket) const;
    void handleActiveWindowChange();
    bool connectionBroken() const;

    xcb_connection_t* m_connection = nullptr;
    quint32 m_root = 0;
    // The atoms every event is compared with, interned once.
    quint32 m_activeWindowAtom = 0;
    quint32 m_clientListAtom = 0;
    AppIdentityResolver& m_resolver;
    std::unique_ptr<QSocketNotifier> m_notifier;
    LogindWakeWatcher* m_wakeWatcher = nullptr;
    mutable QHash<QString, quint32> m_atoms;
    mutable QHash<quint32, RunningApp> m_appsByWindow;
    mutable quint32 m_activeWindow = 0;
    // The open applications, until the window list or the active window changes.
    mutable std::optional<QList<RunningApp>> m_running;
    std::optional<RunningApp> m_lastActivated;
    mutable bool m_reportedBroken = false;
    mutable bool m_drainScheduled = false;
};
