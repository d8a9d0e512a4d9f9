#include "StatusLabel.h"

#include <QHash>

namespace StatusLabel {

QString character(const QString& symbol) {
    static const QHash<QString, QString> characters = {
        {QStringLiteral("bolt.fill"), QStringLiteral("\u26A1\uFE0E")},
        {QStringLiteral("keyboard"), QStringLiteral("\u2328")},
        {QStringLiteral("book"), QStringLiteral("\u00B6")},
        {QStringLiteral("sparkles"), QStringLiteral("\u2726")},
        {QStringLiteral("circle.dotted"), QStringLiteral("\u25CC")},
    };
    return characters.value(symbol);
}

QString text(const QString& count, const QString& symbol) {
    if (count.isEmpty())
        return {};
    return count + character(symbol);
}

QString shortCount(const QString& text) {
    const QString count = text.trimmed();
    if (!count.endsWith(QLatin1Char('k')))
        return count;
    const qsizetype dot = count.indexOf(QLatin1Char('.'));
    // Tens of thousands and more lose the decimal; below that it is the only change there is.
    if (dot >= 2)
        return count.left(dot) + QLatin1Char('k');
    return count;
}

QString guide(const QString& symbol) {
    return QStringLiteral(" 88.8k ") + character(symbol);
}

} // namespace StatusLabel
