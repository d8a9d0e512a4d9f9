#pragma once

#include "StatusIconPainter.h"

#include "platform/StatusItem.h"

#include <QDBusConnection>

#include <memory>

// The status item the desktop can show: a StatusNotifierItem when a StatusNotifierWatcher is on
// the session bus, else a tray icon when an XEmbed system tray is there (and the program runs a
// QApplication), else none; `why` then says what was missing, and the program shows its
// dashboard in an ordinary window instead. `why` is also set to the backend chosen.
std::unique_ptr<StatusItem> createStatusItem(const StatusIconGlyph& glyph, QString* why);
std::unique_ptr<StatusItem> createStatusItem(const QDBusConnection& sessionBus,
                                             const StatusIconGlyph& glyph, QString* why);
