#include "ExportManager.h"

#include "store/DayStore.h"

#include <QSaveFile>

ExportManager::ExportManager(const DayStore& store, const Defaults& defaults, const Clock& clock,
                             FileChooser& chooser, Pasteboard& pasteboard)
    : m_formatter(store, defaults, clock)
    , m_chooser(chooser)
    , m_pasteboard(pasteboard) {}

ExportManager& ExportManager::shared() {
    static ExportManager* manager =
        new ExportManager(DayStore::shared(), Defaults::standard(), Clock::system(),
                          FileChooser::standard(), Pasteboard::standard());
    return *manager;
}

void ExportManager::exportCSV() {
    const std::optional<QString> path = m_chooser.chooseSaveLocation(
        {saveTitle, m_formatter.suggestedFileName(), QStringLiteral("Comma-separated values"),
         QStringLiteral("csv")});
    if (!path)
        return;
    writeAtomically(*path, m_formatter.csv().toUtf8()); // a failure is not reported
}

void ExportManager::copyMarkdownSummary() {
    m_pasteboard.setText(m_formatter.markdownSummary());
}

bool ExportManager::writeAtomically(const QString& path, const QByteArray& bytes, QString* error) {
    QSaveFile file(path);
    const bool ok =
        file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
    if (!ok && error)
        *error = file.errorString();
    return ok;
}
