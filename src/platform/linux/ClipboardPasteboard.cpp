#include "ClipboardPasteboard.h"

#include <QClipboard>
#include <QGuiApplication>

void ClipboardPasteboard::setText(const QString& text) {
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear(QClipboard::Clipboard);
    clipboard->setText(text, QClipboard::Clipboard);
}
