#include "QtClipboard.h"

#include <QClipboard>
#include <QGuiApplication>

void QtClipboard::setText(const QString& text) {
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear(QClipboard::Clipboard);
    clipboard->setText(text, QClipboard::Clipboard);
}
