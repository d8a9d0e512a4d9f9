#pragma once

#include "platform/StatusItem.h"

#include <QColor>
#include <QImage>
#include <QPainterPath>
#include <QString>

// What the status icon shows: one glyph of an icon font (the brain of the app's icon font).
struct StatusIconGlyph {
    QString fontFamily;
    char32_t codePoint = 0;
};

// Draws the status icon in its states: as bitmaps, as SVG for an icon theme, and with a count
// drawn over it for trays that show no text.
//
// The glyph is taken as an outline on a 24-unit square (the icon font's design grid), centred,
// so every size and the SVG show the same shape. A font without the glyph gives a plain disc,
// so the item can still be found and clicked.
class StatusIconPainter {
public:
    explicit StatusIconPainter(const StatusIconGlyph& glyph);

    // The state's colour: a neutral grey for normal (contrast of 3:1 or more on both white and
    // black panels), system orange #FF9500, system red #FF3B30; invalid for none.
    static QColor colour(StatusItem::Icon icon);

    bool hasGlyph() const { return m_hasGlyph; }

    // The glyph filling a size × size square in the colour; fully transparent for none.
    QImage image(int size, StatusItem::Icon icon) const;
    QImage image(int size, const QColor& colour) const;

    // An SVG of the glyph on the 24-unit square. A symbolic one is marked so hosts paint it in
    // the panel's text colour (the ColorScheme-Text class for KDE, a "-symbolic" file name for
    // GTK); otherwise it keeps the fill.
    QString svg(const QColor& fill, bool symbolic) const;

    // For trays without text: the glyph in the state's colour with the short count (e.g. "12k")
    // in white on a dark plate (a dark shade of orange or red when saturated) across its lower
    // part; with Icon::none the count alone, as large as fits.
    QImage imageWithCount(int size, StatusItem::Icon icon, const QString& count) const;

private:
    QPainterPath m_outline;
    bool m_hasGlyph = false;
};
