#pragma once

#include <QString>

// The text a panel shows beside the status icon: the count followed by one character standing
// for the kind of work. Panels draw labels in their own text font, so each character is one
// that DejaVu Sans (and so the common panel fonts) has.
namespace StatusLabel {

// "bolt.fill" ⚡ (with U+FE0E, which asks for the plain text form instead of a colour emoji),
// "keyboard" ⌨, "book" ¶, "sparkles" ✦, "circle.dotted" ◌; empty for an empty or unknown name.
QString character(const QString& symbol);

// The count with its character after it, e.g. " 12.3k ⚡"; empty when the count is empty.
QString text(const QString& count, const QString& symbol);

// What fits on an icon: " 12.3k " → "12k", " 1.5k " → "1.5k", " 950 " → "950".
QString shortCount(const QString& text);

// The widest text expected, so panels that reserve room for a label keep it steady.
QString guide(const QString& symbol);

} // namespace StatusLabel
