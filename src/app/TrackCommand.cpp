// `mindmeter track`: the sensing loop in the foreground, without a tray or windows.

#include "CommandLine.h"
#include "TrackingLock.h"
#include "UnixSignalWatcher.h"

#include "platform/Clock.h"
#include "platform/linux/AppAliases.h"
#include "platform/linux/AppIdentityResolver.h"
#include "platform/linux/DesktopEntryIndex.h"
#include "platform/linux/X11IdleSource.h"
#include "platform/linux/X11Workspace.h"
#include "sensing/ActivityMonitor.h"
#include "sensing/SessionContextEngine.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <csignal>

int CommandLine::track(const QStringList& args) {
    int tickMs = 10000;
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--tick-ms")) {
            bool ok = false;
            tickMs = i + 1 < args.size() ? args[++i].toInt(&ok) : 0;
            if (!ok || tickMs < 10 || tickMs > 10000)
                return usageError(QStringLiteral("--tick-ms takes a number from 10 to 10000"));
        } else {
            return usageError(QStringLiteral("track does not take '%1'").arg(args[i]));
        }
    }

    const bool wayland = qEnvironmentVariable("XDG_SESSION_TYPE") == QLatin1String("wayland") ||
                         qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
    if (wayland && !qEnvironmentVariableIsSet("DISPLAY"))
        return failure(QStringLiteral(
            "cannot track: this Wayland session has no X11 display, and only X11 desktops can "
            "be followed for now"));

    std::unique_ptr<SqliteDefaults> defaults = openStore();
    if (!defaults)
        return 1;

    TrackingLock lock(QFileInfo(defaults->path()).absolutePath());
    QString why;
    if (!lock.tryLock(&why))
        return failure(why);

    DesktopEntryIndex entries;
    AppIdentityResolver resolver(entries, AppAliases::builtIn(), QCoreApplication::applicationPid(),
                                 QString::fromLatin1(ActivityMonitor::ownBundleID));
    QString error;
    std::unique_ptr<X11Workspace> workspace = X11Workspace::open(resolver, &error);
    if (!workspace)
        return failure(QStringLiteral("cannot track: %1").arg(error));
    std::unique_ptr<X11IdleSource> idle = X11IdleSource::open(&error);
    if (!idle)
        return failure(QStringLiteral("cannot track: %1").arg(error));
    if (wayland)
        std::fprintf(m_err, "mindmeter: this is a Wayland session: only applications shown "
                            "through XWayland can be seen; while a native Wayland window is in "
                            "front, the last X11 application stays current\n");
    if (!workspace->hasActiveWindowSupport())
        std::fprintf(m_err, "mindmeter: the window manager does not publish the active window "
                            "(_NET_ACTIVE_WINDOW); no application will be seen in front\n");

    DayStore store(*defaults, m_clock);
    SessionContextEngine engine(*workspace, *idle, store, *defaults, m_clock,
                                SessionContextEngine::Options{tickMs, 30});
    SessionContextEngine::setShared(&engine);
    ActivityMonitor::Options monitorOptions;
    monitorOptions.tickIntervalMs = tickMs;
    ActivityMonitor monitor(
        store, *workspace, *idle, *defaults, m_clock, [&engine] { return engine.multiplier(); },
        monitorOptions);
    QObject::connect(workspace.get(), &Workspace::didWake, &store, &DayStore::handleWake);

    UnixSignalWatcher signalWatcher({SIGINT, SIGTERM, SIGHUP});
    QObject::connect(&signalWatcher, &UnixSignalWatcher::received, [&] {
        // Stop in the order of starting; the monitor flushes what it has gathered, and the
        // posted session is stored before the loop ends.
        monitor.stop();
        engine.stop();
        QCoreApplication::sendPostedEvents();
        QCoreApplication::quit();
    });

    std::fprintf(m_err, "mindmeter: tracking; stop with Ctrl-C\n");
    std::fflush(m_err);
    monitor.start();
    engine.start();
    const int status = QCoreApplication::exec();
    SessionContextEngine::setShared(nullptr);
    store.waitForHistory();
    return status;
}
