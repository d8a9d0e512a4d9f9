#include "CommandLine.h"

#include "platform/Clock.h"

#include <QCoreApplication>

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("mindmeter"));
    const QStringList args = QCoreApplication::arguments().mid(1);
    CommandLine cli(Clock::system(), stdout, stderr);
    if (args.isEmpty()) {
        std::fputs(CommandLine::usage().toUtf8().constData(), stdout);
        return 0;
    }
    return cli.run(args);
}
