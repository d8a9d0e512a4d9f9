#include "TrayApplication.h"

#include "AppDelegate.h"
#include "SingleInstance.h"
#include "TrackingLock.h"
#include "UnixSignalWatcher.h"

#include "platform/Clock.h"
#include "platform/linux/StatusItemFactory.h"
#include "store/SqliteDefaults.h"
#include "views/IconFont.h"

#include <QApplication>
#include <QFileInfo>

#include <csignal>
#include <cstdio>
#include <malloc.h>

namespace {

// Opens the store at path. A file SQLite finds damaged (cut short, say) is moved aside,
// bytes untouched, and a new store is made in its place, so the day is counted and stored
// rather than lost; *keptAs then names where the old file is. That happens only while this
// process holds the tracking lock (taken here, *locked set), so no other tracker has the
// old file open; *error then says what was wrong with it. Null, with the reason in *error,
// when no store can be had.
std::unique_ptr<SqliteDefaults> openSettingDamageAside(const QString& path, TrackingLock& lock,
                                                       bool* locked, QString* keptAs,
                                                       QString* error) {
    bool damaged = false;
    std::unique_ptr<SqliteDefaults> store = SqliteDefaults::open(path, error, &damaged);
    if (store || !damaged)
        return store;
    const QString fault = *error;
    QString why;
    if (!lock.tryLock(&why)) {
        *error = fault + QStringLiteral("; ") + why;
        return nullptr;
    }
    *locked = true;
    *keptAs = SqliteDefaults::setAside(path, Clock::system().now(), &why);
    if (keptAs->isEmpty()) {
        *error = fault + QStringLiteral("; ") + why;
        return nullptr;
    }
    store = SqliteDefaults::open(path, error);
    if (store)
        *error = fault;
    return store;
}

NotificationRequest setAsideNotice(const QString& keptAs) {
    NotificationRequest notice;
    notice.identifier = QStringLiteral("mindmeter.damagedStore");
    notice.title = QStringLiteral("Mindmeter started a new data file");
    notice.body = QStringLiteral("The data file was damaged. It is kept unchanged as %1, with "
                                 "your settings and earlier days; today is counted in a new one.")
                      .arg(keptAs);
    notice.sound = false;
    return notice;
}

} // namespace

int TrayApplication::run(int argc, char* argv[]) {
    // Without a display Qt would abort inside QApplication; say what is missing instead.
    if (!qEnvironmentVariableIsSet("DISPLAY") && !qEnvironmentVariableIsSet("WAYLAND_DISPLAY") &&
        !qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        std::fprintf(stderr, "mindmeter: no display: the tray application needs a desktop session "
                             "(neither WAYLAND_DISPLAY nor DISPLAY is set); see 'mindmeter help' "
                             "for the command line\n");
        return 1;
    }
    // The software renderer keeps the dashboard's memory small and needs no GPU driver; a
    // panel of cards gains nothing from hardware rendering. Chosen through the environment so
    // Qt Quick is not touched before the dashboard is first opened.
    // One heap for all threads: the pool and Qt Quick's threads allocate little, and each
    // arena of its own keeps freed pages that malloc_trim cannot always hand back.
    mallopt(M_ARENA_MAX, 1);
    if (!qEnvironmentVariableIsSet("QT_QUICK_BACKEND"))
        qputenv("QT_QUICK_BACKEND", "software");
    if (!qEnvironmentVariableIsSet("QT_QUICK_CONTROLS_STYLE"))
        qputenv("QT_QUICK_CONTROLS_STYLE", "Fusion");
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("mindmeter"));
    QApplication::setApplicationDisplayName(QStringLiteral("Mindmeter"));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.mindmeter.Mindmeter"));
    QApplication::setQuitOnLastWindowClosed(false);

    // Logging out, `kill`, Ctrl-C: stop in order so the last minute is stored. Caught from
    // here on, so a signal that arrives during start-up ends the program once it has started
    // rather than killing it half-way.
    bool stopRequested = false;
    UnixSignalWatcher stopSignals({SIGINT, SIGTERM, SIGHUP});
    QObject::connect(&stopSignals, &UnixSignalWatcher::received, &app, [&stopRequested] {
        stopRequested = true;
        QCoreApplication::quit();
    });

    SingleInstance instance;
    if (!instance.claim()) {
        std::fprintf(stderr, "mindmeter: already running; showing its dashboard\n");
        return 0;
    }
    if (!IconFont::load())
        std::fprintf(stderr, "mindmeter: the icon font (Material Icons) is not installed; "
                             "symbols will not show\n");

    QString error;
    const QString path = SqliteDefaults::defaultPath();
    TrackingLock lock(QFileInfo(path).absolutePath());
    bool locked = false;
    QString keptAs;
    std::unique_ptr<SqliteDefaults> defaults =
        openSettingDamageAside(path, lock, &locked, &keptAs, &error);
    if (!defaults) {
        std::fprintf(stderr, "mindmeter: %s\n", qPrintable(error));
        return 1;
    }
    defaults->setBusyWaitLimit(SqliteDefaults::interactiveBusyWaitMs);

    if (!locked && !lock.tryLock(&error)) {
        std::fprintf(stderr, "mindmeter: %s\n", qPrintable(error));
        return 1;
    }
    AppDelegate::Options options;
    if (!keptAs.isEmpty()) {
        std::fprintf(stderr,
                     "mindmeter: %s; it is kept unchanged as %s, and today is counted in a new "
                     "data file in its place\n",
                     qPrintable(error), qPrintable(keptAs));
        options.startUpNotice = setAsideNotice(keptAs);
    }

    QString why;
    const StatusIconGlyph glyph{IconFont::family(), IconFont::brainCodePoint};
    std::unique_ptr<StatusItem> statusItem = createStatusItem(glyph, &why);
    if (!statusItem)
        std::fprintf(stderr, "mindmeter: %s; the dashboard opens as a window instead\n",
                     qPrintable(why));

    if (const int tick = qEnvironmentVariableIntValue("MINDMETER_TICK_MS"); tick >= 10)
        options.tickIntervalMs = tick; // for tests: each tick still counts ten seconds
    if (const int release = qEnvironmentVariableIntValue("MINDMETER_WINDOWS_RELEASE_MS");
        release >= 1)
        options.windowsReleaseDelayMs = release; // for tests
    AppDelegate delegate(*defaults, Clock::system(), options);
    if (!delegate.applicationDidFinishLaunching(std::move(statusItem), &error)) {
        std::fprintf(stderr, "mindmeter: cannot follow the desktop: %s\n", qPrintable(error));
        return 1;
    }
    QObject::connect(&instance, &SingleInstance::showRequested, &delegate,
                     &AppDelegate::showPopover);

    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     &AppDelegate::applicationWillTerminate);
    // A signal taken in by a local event loop during start-up, before the main one ran.
    if (stopRequested)
        QMetaObject::invokeMethod(&app, &QCoreApplication::quit, Qt::QueuedConnection);
    return QApplication::exec();
}
