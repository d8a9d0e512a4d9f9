#include "Formats.h"

#include "model/Format.h"

#include <cmath>

QString Formats::formatK(qint64 n) {
    return ::formatK(n);
}

QString Formats::percent(double v) {
    return printfDouble("%.0f%%", v * 100.0);
}

QString Formats::multiplier(double m) {
    return printfDouble("\u00d7%.1f token multiplier", m);
}

QString Formats::switches(qint64 count) {
    return QString::number(count) + QStringLiteral(" app switch") +
           (count == 1 ? QString() : QStringLiteral("es")) + QStringLiteral(" this hour");
}

QString Formats::change(double fraction) {
    const QString arrow = fraction >= 0 ? QStringLiteral("\u2191") : QStringLiteral("\u2193");
    return arrow + QString::number(qint64(std::fabs(fraction) * 100.0)) + u'%';
}

QString Formats::truncatedPercent(double fraction) {
    return QString::number(qint64(fraction * 100.0)) + u'%';
}

QString Formats::integer(qint64 n) {
    return QString::number(n);
}

QString Formats::thousands(qint64 n) {
    return printfDouble("%.0fk", double(n) / 1000.0);
}
