#include "CommandLine.h"
#include "PrivateModules.h"
#include "SnapshotWorld.h"
#include "TrayApplication.h"

#include "platform/Clock.h"
#include "platform/Defaults.h"

#include <QCoreApplication>

#include <cstdio>

namespace {

// `mindmeter --snapshot DIR` renders views and needs a GUI application, which the UI
// library makes; every other verb runs without one.
int runSnapshot(int argc, char* argv[]) {
    QString error;
    const RunSnapshot snapshot = PrivateModules::runSnapshot(&error);
    if (!snapshot) {
        std::fprintf(stderr, "mindmeter: cannot load the views: %s\n", qPrintable(error));
        return 1;
    }
    return snapshot(argc, argv, argv[2], &SnapshotWorld::make);
}

} // namespace

int main(int argc, char* argv[]) {
    // No verb: the tray application.
    if (argc == 1)
        return TrayApplication::run(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--snapshot") == 0)
        return runSnapshot(argc, argv);

    // Nothing of GLib's runs in the command line, so it takes Qt's own event dispatcher: each
    // idle tick of `track` then wakes less code. Children do not inherit the choice.
    const bool dispatcherChosen = qEnvironmentVariableIsSet("QT_NO_GLIB");
    if (!dispatcherChosen)
        qputenv("QT_NO_GLIB", "1");
    QCoreApplication app(argc, argv);
    if (!dispatcherChosen)
        qunsetenv("QT_NO_GLIB");
    QCoreApplication::setApplicationName(QStringLiteral("mindmeter"));
    const QStringList args = QCoreApplication::arguments().mid(1);
    CommandLine cli(Clock::system(), &CommandLine::openUserStore, stdout, stderr);
    return cli.run(args);
}
