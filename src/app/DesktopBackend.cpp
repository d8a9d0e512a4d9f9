#include "DesktopBackend.h"

#include "GnomeShellBackend.h"

#include "platform/linux/KWinScriptWorkspace.h"
#include "platform/linux/WaylandConnection.h"
#include "platform/linux/WaylandIdleSource.h"
#include "platform/linux/WlrToplevelWorkspace.h"
#include "platform/linux/X11IdleSource.h"
#include "platform/linux/X11Workspace.h"

#include <functional>

namespace {

// What every step may use; the compositor connection is opened once, on first need.
struct Session {
    AppIdentityResolver& resolver;
    const Clock& clock;
    std::shared_ptr<WaylandConnection> wayland;
    QString waylandError;
    bool waylandTried = false;

    std::shared_ptr<WaylandConnection> compositor(QString* why) {
        if (!waylandTried) {
            waylandTried = true;
            wayland = WaylandConnection::open(&waylandError);
        }
        if (!wayland && why)
            *why = waylandError;
        return wayland;
    }
};

using Step = std::function<std::unique_ptr<DesktopBackend>(Session&, QString* why)>;

std::unique_ptr<DesktopBackend> wlroots(Session& s, QString* why) {
    std::shared_ptr<WaylandConnection> wayland = s.compositor(why);
    if (!wayland)
        return nullptr;
    auto backend = std::make_unique<DesktopBackend>();
    std::unique_ptr<WlrToplevelWorkspace> workspace =
        WlrToplevelWorkspace::open(wayland, s.resolver, why);
    if (!workspace)
        return nullptr;
    std::unique_ptr<WaylandIdleSource> idle = WaylandIdleSource::open(wayland, s.clock, why);
    if (!idle)
        return nullptr;
    backend->description =
        QStringLiteral("a wlroots compositor (zwlr_foreign_toplevel_manager_v1 for windows, %1 "
                       "for idle time)")
            .arg(idle->protocol());
    backend->workspace = std::move(workspace);
    backend->idle = std::move(idle);
    return backend;
}

std::unique_ptr<DesktopBackend> kwin(Session& s, QString* why) {
    std::shared_ptr<WaylandConnection> wayland = s.compositor(why);
    if (!wayland)
        return nullptr;
    // Idle first: without it there is nothing to load the script for.
    std::unique_ptr<WaylandIdleSource> idle = WaylandIdleSource::open(wayland, s.clock, why);
    if (!idle)
        return nullptr;
    std::unique_ptr<KWinScriptWorkspace> workspace = KWinScriptWorkspace::open(s.resolver, why);
    if (!workspace)
        return nullptr;
    auto backend = std::make_unique<DesktopBackend>();
    backend->description =
        QStringLiteral("KWin on Wayland (a KWin script for windows, %1 for idle time)")
            .arg(idle->protocol());
    backend->workspace = std::move(workspace);
    backend->idle = std::move(idle);
    return backend;
}

std::unique_ptr<DesktopBackend> gnomeShell(Session& s, QString* why) {
    auto backend = std::make_unique<DesktopBackend>();
    if (!openGnomeShellBackend(s.resolver, &backend->workspace, &backend->idle)) {
        *why = QStringLiteral("not a GNOME Shell session on Wayland");
        return nullptr;
    }
    backend->description =
        QStringLiteral("GNOME Shell on Wayland (Mindmeter's shell extension for windows, "
                       "org.gnome.Mutter.IdleMonitor for idle time)");
    return backend;
}

std::unique_ptr<DesktopBackend> x11(Session& s, QString* why) {
    std::unique_ptr<X11Workspace> workspace = X11Workspace::open(s.resolver, why);
    if (!workspace)
        return nullptr;
    auto backend = std::make_unique<DesktopBackend>();
    if (!workspace->hasActiveWindowSupport())
        backend->notes << QStringLiteral(
            "the window manager does not publish the active window (_NET_ACTIVE_WINDOW); no "
            "application will be seen in front");
    // Xwayland has no MIT-SCREEN-SAVER; a Wayland session may still say when input stops.
    QString x11Why;
    std::unique_ptr<X11IdleSource> x11Idle = X11IdleSource::open(s.clock, &x11Why);
    QString idleName = x11Idle ? x11Idle->mechanism() : QString();
    std::unique_ptr<IdleSource> idle = std::move(x11Idle);
    if (!idle && s.compositor(nullptr)) {
        std::unique_ptr<WaylandIdleSource> waylandIdle =
            WaylandIdleSource::open(s.wayland, s.clock, nullptr);
        if (waylandIdle) {
            idleName = waylandIdle->protocol();
            idle = std::move(waylandIdle);
        }
    }
    if (!idle) {
        *why = x11Why;
        return nullptr;
    }
    if (s.compositor(nullptr) || qEnvironmentVariableIsSet("WAYLAND_DISPLAY"))
        backend->notes << QStringLiteral(
            "this Wayland session's compositor tells no ordinary client which window is in "
            "front: only applications shown through XWayland can be seen; while a native "
            "Wayland window is in front, the last X11 application stays current");
    backend->description =
        QStringLiteral("X11 (EWMH _NET_ACTIVE_WINDOW for windows, %1 for idle time)").arg(idleName);
    backend->workspace = std::move(workspace);
    backend->idle = std::move(idle);
    return backend;
}

} // namespace

std::unique_ptr<DesktopBackend> chooseDesktopBackend(AppIdentityResolver& resolver,
                                                     const Clock& clock, QString* error) {
    // In order of preference; the first that can follow the session wins.
    const QList<std::pair<const char*, Step>> steps = {
        {"GNOME Shell", gnomeShell},
        {"wlroots", wlroots},
        {"KWin", kwin},
        {"X11", x11},
    };
    Session session{resolver, clock, nullptr, {}, false};
    QStringList reasons;
    for (const auto& [name, step] : steps) {
        QString why;
        if (std::unique_ptr<DesktopBackend> backend = step(session, &why))
            return backend;
        reasons << QStringLiteral("%1: %2").arg(QLatin1String(name), why);
    }
    if (error)
        *error = QStringLiteral("no way to follow this desktop (%1)")
                     .arg(reasons.join(QStringLiteral("; ")));
    return nullptr;
}
