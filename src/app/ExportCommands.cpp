// `mindmeter export --csv PATH` and `mindmeter summary`: the texts the app exports, without a
// dialog or a clipboard.
#include "CommandLine.h"

#include "services/ExportFormatter.h"
#include "services/ExportManager.h"
#include "store/DayStore.h"

#include <unistd.h>

namespace {

// The text is written exactly as the app writes it (no line feed after the last line); a
// terminal gets one more so the prompt starts on a line of its own.
QByteArray forStream(const QString& text, FILE* stream) {
    QByteArray bytes = text.toUtf8();
    if (::isatty(::fileno(stream)))
        bytes.append('\n');
    return bytes;
}

} // namespace

int CommandLine::exportHistory(const QStringList& args) {
    if (args.size() != 2 || args[0] != QLatin1String("--csv") || args[1].isEmpty())
        return usageError(QStringLiteral("export needs --csv PATH (- for standard output)"));
    return withToday([&](Defaults& store, DayStore& day) {
        day.waitForHistory();
        const QString csv = ExportFormatter(day, store, m_clock).csv();
        if (args[1] == QLatin1String("-")) {
            printBytes(forStream(csv, m_out));
            return 0;
        }
        QString error;
        if (!ExportManager::writeAtomically(args[1], csv.toUtf8(), &error))
            return failure(QStringLiteral("cannot write %1: %2").arg(args[1], error));
        return 0;
    });
}

int CommandLine::summary(const QStringList& args) {
    if (!args.isEmpty())
        return usageError(QStringLiteral("summary does not take '%1'").arg(args.first()));
    return withToday([&](Defaults& store, DayStore& day) {
        day.waitForHistory();
        printBytes(forStream(ExportFormatter(day, store, m_clock).markdownSummary(), m_out));
        return 0;
    });
}
