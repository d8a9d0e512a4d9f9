#include "ExportManager.h"

#include "store/DayStore.h"

#include <QSaveFile>

ExportManager::ExportManager(const DayStore& store, const Defaults& defaults, const Clock& clock,
                             FileChooser& chooser, Clipboard& clipboard)
    : m_formatter(store, defaults, clock)
    , m_chooser(chooser)
    , m_clipboard(clipboard) {}

void ExportManager::exportCSV() {
    const std::optional<QString> path = m_chooser.chooseSaveLocation(
        {saveTitle, m_formatter.suggestedFileName(), QStringLiteral("Comma-separated values"),
         QStringLiteral("csv")});
    if (!path)
        return;
    writeAtomically(*path, m_formatter.csv().toUtf8()); // a failure is not reported
}

void ExportManager::copyMarkdownSummary() {
    m_clipboard.setText(m_formatter.markdownSummary());
}

bool ExportManager::writeAtomically(const QString& path, const QByteArray& bytes, QString* error) {
    QSaveFile file(path);
    const bool ok =
        file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
    if (!ok && error)
        *error = file.errorString();
    return ok;
}
