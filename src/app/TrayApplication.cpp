#include "TrayApplication.h"

#include "AppDelegate.h"
#include "PopoverWindow.h"
#include "SingleInstance.h"
#include "TrackingLock.h"
#include "UnixSignalWatcher.h"

#include "platform/Clock.h"
#include "platform/linux/StatusItemFactory.h"
#include "store/SqliteDefaults.h"
#include "views/Symbols.h"

#include <QApplication>
#include <QFileInfo>
#include <QQmlExtensionPlugin>
#include <QQuickStyle>
#include <QQuickWindow>

#include <csignal>
#include <cstdio>

Q_IMPORT_QML_PLUGIN(MindmeterPlugin)

int TrayApplication::run(int argc, char* argv[]) {
    // The software renderer keeps the dashboard's memory small and needs no GPU driver; a
    // panel of cards gains nothing from hardware rendering.
    if (!qEnvironmentVariableIsSet("QT_QUICK_BACKEND"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("mindmeter"));
    QApplication::setApplicationDisplayName(QStringLiteral("Mindmeter"));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.mindmeter.Mindmeter"));
    QApplication::setQuitOnLastWindowClosed(false);
    QQuickStyle::setStyle(QStringLiteral("Fusion"));

    SingleInstance instance;
    if (!instance.claim()) {
        std::fprintf(stderr, "mindmeter: already running; showing its dashboard\n");
        return 0;
    }
    if (!Symbols::loadFont())
        std::fprintf(stderr, "mindmeter: the icon font (Material Icons) is not installed; "
                             "symbols will not show\n");

    QString error;
    std::unique_ptr<SqliteDefaults> defaults =
        SqliteDefaults::open(SqliteDefaults::defaultPath(), &error);
    if (!defaults) {
        std::fprintf(stderr, "mindmeter: %s\n", qPrintable(error));
        return 1;
    }
    Defaults::setStandard(defaults.get());

    TrackingLock lock(QFileInfo(defaults->path()).absolutePath());
    if (!lock.tryLock(&error)) {
        std::fprintf(stderr, "mindmeter: %s\n", qPrintable(error));
        return 1;
    }

    QString why;
    const StatusIconGlyph glyph{Symbols().fontFamily(),
                                char32_t(Symbols::table().value(QStringLiteral("brain.head.profile")))};
    std::unique_ptr<StatusItem> statusItem = createStatusItem(glyph, &why);
    if (!statusItem)
        std::fprintf(stderr, "mindmeter: %s; the dashboard opens as a window instead\n",
                     qPrintable(why));

    AppDelegate::Options options;
    if (const int tick = qEnvironmentVariableIntValue("MINDMETER_TICK_MS"); tick >= 10)
        options.tickIntervalMs = tick; // for tests: each tick still counts ten seconds
    AppDelegate delegate(*defaults, Clock::system(), options);
    if (!delegate.applicationDidFinishLaunching(std::move(statusItem), &error)) {
        std::fprintf(stderr, "mindmeter: cannot follow the desktop: %s\n", qPrintable(error));
        return 1;
    }
    QObject::connect(&instance, &SingleInstance::showRequested, &delegate,
                     [&delegate] { delegate.popover().show(); });

    // Logging out, `kill`, Ctrl-C: stop in order so the last minute is stored.
    UnixSignalWatcher stopSignals({SIGINT, SIGTERM, SIGHUP});
    QObject::connect(&stopSignals, &UnixSignalWatcher::received, &app, &QCoreApplication::quit);
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     &AppDelegate::applicationWillTerminate);
    return QApplication::exec();
}
