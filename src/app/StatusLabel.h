#pragma once

#include <QString>

// The status item's title as one line of plain text, for places that cannot draw the
// symbol: status bars (waybar, polybar, i3blocks) and tray labels. Each symbol of the kind of
// work becomes one character:
//
//   bolt.fill (reasoning) ⚡   keyboard (output) ⌨   book (input) 📖
//   sparkles (AI) ✨            circle.dotted (nothing earning) ◌
namespace StatusLabel {

// The character for a symbol name; empty for an empty or unknown name.
QString character(const QString& symbol);
// The title text followed by the symbol's character: " 12.3k ⚡".
QString text(const QString& titleText, const QString& symbol);

} // namespace StatusLabel
