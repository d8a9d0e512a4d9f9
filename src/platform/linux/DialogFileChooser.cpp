#include "DialogFileChooser.h"

#include <QFileDialog>
#include <QGuiApplication>
#include <QStandardPaths>
#include <QWindow>

DialogFileChooser::DialogFileChooser(QString startFolder)
    : m_startFolder(std::move(startFolder)) {}

std::optional<QString> DialogFileChooser::chooseSaveLocation(const SaveRequest& request) {
    QFileDialog dialog(nullptr, request.title);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setNameFilter(QStringLiteral("%1 (*.%2)").arg(request.fileTypeName, request.suffix));
    dialog.setDefaultSuffix(request.suffix);
    dialog.setDirectory(m_startFolder.isEmpty()
                            ? QStandardPaths::writableLocation(QStandardPaths::HomeLocation)
                            : m_startFolder);
    dialog.selectFile(request.suggestedName);
    if (QWindow* asking = QGuiApplication::focusWindow()) {
        dialog.winId(); // makes the native window, so it can be given its parent
        if (QWindow* own = dialog.windowHandle())
            own->setTransientParent(asking);
    }
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    const QStringList files = dialog.selectedFiles();
    if (files.isEmpty() || files.first().isEmpty())
        return std::nullopt;
    return files.first();
}
