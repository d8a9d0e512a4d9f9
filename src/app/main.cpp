#include "CommandLine.h"
#include "TrayApplication.h"
#include "UiLibrary.h"

#include "platform/Clock.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char* argv[]) {
    // The snapshot mode renders views and needs a GUI application; every other verb runs
    // without one.
    for (int i = 1; i + 1 < argc; ++i) {
        if (qstrcmp(argv[i], "--snapshot") == 0) {
            QString error;
            const RunSnapshot snapshot = UiLibrary::runSnapshot(&error);
            if (!snapshot) {
                std::fprintf(stderr, "mindmeter: cannot load the views: %s\n", qPrintable(error));
                return 1;
            }
            return snapshot(argc, argv, argv[i + 1]);
        }
    }

    // No verb: the tray application.
    if (argc == 1)
        return TrayApplication::run(argc, argv);

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("mindmeter"));
    const QStringList args = QCoreApplication::arguments().mid(1);
    CommandLine cli(Clock::system(), stdout, stderr);
    return cli.run(args);
}
