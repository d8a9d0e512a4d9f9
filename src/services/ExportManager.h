#pragma once

#include "ExportFormatter.h"

#include "platform/Clipboard.h"
#include "platform/FileChooser.h"

#include <QByteArray>
#include <QObject>
#include <QString>

// Exports the history as a CSV file the user picks, and copies today's summary as Markdown
// to the clipboard. Both run on the main thread; failures are silent (the command line, which
// shares the texts and the writing, reports them).
class ExportManager : public QObject {
    Q_OBJECT
public:
    inline static const QString saveTitle = QStringLiteral("Export Token History");

    ExportManager(const DayStore& store, const Defaults& defaults, const Clock& clock,
                  FileChooser& chooser, Clipboard& clipboard);

    // Asks where to save (a modal dialog) and writes the CSV there; nothing when cancelled.
    Q_INVOKABLE void exportCSV();
    Q_INVOKABLE void copyMarkdownSummary();

    const ExportFormatter& formatter() const { return m_formatter; }

    // Replaces the file at path with bytes in one step: a reader sees either the old file
    // or the whole new one, and a failed write leaves the old file as it was.
    static bool writeAtomically(const QString& path, const QByteArray& bytes,
                                QString* error = nullptr);

private:
    ExportFormatter m_formatter;
    FileChooser& m_chooser;
    Clipboard& m_clipboard;
};
