#include "StatusLabel.h"

#include <QHash>

QString StatusLabel::character(const QString& symbol) {
    static const QHash<QString, QString> characters = {
        {QStringLiteral("bolt.fill"), QStringLiteral("\u26a1")},
        {QStringLiteral("keyboard"), QStringLiteral("\u2328")},
        {QStringLiteral("book"), QStringLiteral("\U0001f4d6")},
        {QStringLiteral("sparkles"), QStringLiteral("\u2728")},
        {QStringLiteral("circle.dotted"), QStringLiteral("\u25cc")},
    };
    return characters.value(symbol);
}

QString StatusLabel::text(const QString& titleText, const QString& symbol) {
    return titleText + character(symbol);
}
