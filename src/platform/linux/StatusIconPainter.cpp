#include "StatusIconPainter.h"

#include <QFont>
#include <QFontMetricsF>
#include <QPainter>
#include <QRawFont>

namespace {

constexpr qreal gridSize = 24.0;

QString number(qreal value) {
    return QString::number(value, 'f', 2);
}

// SVG path data of an outline built from moves, lines and cubic curves (what text gives).
QString pathData(const QPainterPath& path) {
    QString d;
    for (int i = 0; i < path.elementCount(); ++i) {
        const QPainterPath::Element e = path.elementAt(i);
        if (e.isMoveTo()) {
            d += QStringLiteral("M%1 %2").arg(number(e.x), number(e.y));
        } else if (e.isLineTo()) {
            d += QStringLiteral("L%1 %2").arg(number(e.x), number(e.y));
        } else if (e.isCurveTo() && i + 2 < path.elementCount()) {
            const QPainterPath::Element c2 = path.elementAt(i + 1);
            const QPainterPath::Element end = path.elementAt(i + 2);
            d += QStringLiteral("C%1 %2 %3 %4 %5 %6")
                     .arg(number(e.x), number(e.y), number(c2.x), number(c2.y), number(end.x),
                          number(end.y));
            i += 2;
        }
    }
    return d;
}

QImage transparentImage(int size) {
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    return image;
}

// The largest bold font of at most maxPixels whose text fits the width.
QFont fittingFont(const QString& text, qreal width, int maxPixels) {
    QFont font;
    font.setBold(true);
    for (int pixels = maxPixels; pixels > 5; --pixels) {
        font.setPixelSize(pixels);
        if (QFontMetricsF(font).horizontalAdvance(text) <= width)
            break;
    }
    return font;
}

} // namespace

StatusIconPainter::StatusIconPainter(const StatusIconGlyph& glyph) {
    QFont font(glyph.fontFamily);
    font.setPixelSize(int(gridSize));
    const QRawFont raw = QRawFont::fromFont(font);
    m_hasGlyph = glyph.codePoint != 0 && raw.isValid() && raw.supportsCharacter(glyph.codePoint);
    if (m_hasGlyph) {
        const char32_t codePoint = glyph.codePoint;
        m_outline.addText(0, 0, font, QString::fromUcs4(&codePoint, 1));
    } else {
        m_outline.addEllipse(QRectF(0, 0, gridSize * 0.6, gridSize * 0.6));
    }
    // Centred on the grid: the font's own side bearings and baseline do not matter.
    m_outline.translate(QPointF(gridSize / 2, gridSize / 2) - m_outline.boundingRect().center());
}

QColor StatusIconPainter::colour(StatusItem::Icon icon) {
    switch (icon) {
    case StatusItem::Icon::normal:
        return QColor(0x8E, 0x8E, 0x93);
    case StatusItem::Icon::orange:
        return QColor(0xFF, 0x95, 0x00);
    case StatusItem::Icon::red:
        return QColor(0xFF, 0x3B, 0x30);
    case StatusItem::Icon::none:
        break;
    }
    return {};
}

QImage StatusIconPainter::image(int size, StatusItem::Icon icon) const {
    if (icon == StatusItem::Icon::none)
        return transparentImage(size);
    return image(size, colour(icon));
}

QImage StatusIconPainter::image(int size, const QColor& colour) const {
    QImage image = transparentImage(size);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / gridSize, size / gridSize);
    painter.fillPath(m_outline, colour);
    return image;
}

QString StatusIconPainter::svg(const QColor& fill, bool symbolic) const {
    const QString rule = m_outline.fillRule() == Qt::WindingFill ? QStringLiteral("nonzero")
                                                                 : QStringLiteral("evenodd");
    QString svg = QStringLiteral("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"24\" "
                                 "height=\"24\" viewBox=\"0 0 24 24\">\n");
    if (symbolic) {
        svg += QStringLiteral("<style type=\"text/css\" id=\"current-color-scheme\">"
                              ".ColorScheme-Text { color:%1; }</style>\n")
                   .arg(fill.name());
        svg += QStringLiteral("<path class=\"ColorScheme-Text\" style=\"fill:currentColor\" "
                              "fill-rule=\"%1\" d=\"%2\"/>\n")
                   .arg(rule, pathData(m_outline));
    } else {
        svg += QStringLiteral("<path fill=\"%1\" fill-rule=\"%2\" d=\"%3\"/>\n")
                   .arg(fill.name(), rule, pathData(m_outline));
    }
    svg += QStringLiteral("</svg>\n");
    return svg;
}

QImage StatusIconPainter::imageWithCount(int size, StatusItem::Icon icon,
                                         const QString& count) const {
    QImage result = image(size, icon);
    if (count.isEmpty())
        return result;
    QPainter painter(&result);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    const bool countOnly = icon == StatusItem::Icon::none;
    const QFont font = fittingFont(count, size - 2, countOnly ? size * 6 / 10 : size / 2);
    const QFontMetricsF metrics(font);
    const qreal plateHeight = qMin<qreal>(size, metrics.height());
    const qreal plateWidth = qMin<qreal>(size, metrics.horizontalAdvance(count) + 2);
    // White on a dark plate reads on any panel colour. When saturated the plate is a dark
    // shade of the state's colour, which tells orange from red even at 16 px, where the plate
    // hides most of the glyph.
    const QRectF plate(
        QPointF((size - plateWidth) / 2, countOnly ? (size - plateHeight) / 2 : size - plateHeight),
        QSizeF(plateWidth, plateHeight));
    painter.setPen(Qt::NoPen);
    const bool saturated = icon == StatusItem::Icon::orange || icon == StatusItem::Icon::red;
    painter.setBrush(saturated ? colour(icon).darker(170) : QColor(0, 0, 0, 190));
    painter.drawRoundedRect(plate, 2, 2);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(plate, Qt::AlignCenter, count);
    return result;
}
