#include "Defaults.h"

#include <QHash>
#include <QLocale>

#include <cmath>
#include <limits>

namespace {

bool isSpace(QChar c) {
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

// A double to integer conversion that saturates instead of invoking undefined behaviour.
qint64 saturatingInteger(double d) {
    if (std::isnan(d))
        return 0;
    if (d >= 9223372036854775807.0)
        return std::numeric_limits<qint64>::max();
    if (d <= -9223372036854775808.0)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(d);
}

// Leading numeric text, the way NSString's integerValue reads it: optional white space,
// an optional sign, then digits; anything after them is ignored. Saturates on overflow.
qint64 leadingInteger(const QString& s) {
    qsizetype i = 0;
    while (i < s.size() && isSpace(s[i]))
        ++i;
    bool negative = false;
    if (i < s.size() && (s[i] == u'+' || s[i] == u'-'))
        negative = s[i++] == u'-';
    qint64 value = 0;
    for (; i < s.size() && s[i] >= u'0' && s[i] <= u'9'; ++i) {
        const int digit = s[i].unicode() - u'0';
        if (value > (std::numeric_limits<qint64>::max() - digit) / 10)
            return negative ? std::numeric_limits<qint64>::min()
                            : std::numeric_limits<qint64>::max();
        value = value * 10 + digit;
    }
    return negative ? -value : value;
}

// Leading decimal text (NSString's doubleValue): optional white space and sign, digits with
// an optional fraction and exponent. Always read with '.' as the decimal point.
double leadingReal(const QString& s) {
    qsizetype i = 0;
    while (i < s.size() && isSpace(s[i]))
        ++i;
    const qsizetype start = i;
    auto digits = [&] {
        const qsizetype from = i;
        while (i < s.size() && s[i] >= u'0' && s[i] <= u'9')
            ++i;
        return i - from;
    };
    if (i < s.size() && (s[i] == u'+' || s[i] == u'-'))
        ++i;
    qsizetype mantissa = digits();
    if (i < s.size() && s[i] == u'.') {
        ++i;
        mantissa += digits();
    }
    if (mantissa == 0)
        return 0.0;
    qsizetype end = i;
    if (i < s.size() && (s[i] == u'e' || s[i] == u'E')) {
        ++i;
        if (i < s.size() && (s[i] == u'+' || s[i] == u'-'))
            ++i;
        if (digits() > 0)
            end = i;
    }
    bool ok = false;
    const double d = s.mid(start, end - start).toLatin1().toDouble(&ok);
    if (ok)
        return d;
    // Out of range: the sign decides which infinity strtod would have given.
    return s[start] == u'-' ? -HUGE_VAL : HUGE_VAL;
}

} // namespace

quint64 Defaults::revision(const QString& key) const {
    const QVariant v = value(key);
    if (!v.isValid())
        return 0;
    const QByteArray bytes =
        v.typeId() == QMetaType::QByteArray ? v.toByteArray() : v.toString().toUtf8();
    return (quint64(qHash(bytes, 0x9e3779b9u)) << 8) | quint64(v.typeId() & 0xff) | 1u;
}

qint64 Defaults::toInteger(const QVariant& v) {
    switch (v.typeId()) {
    case QMetaType::LongLong:
        return v.toLongLong();
    case QMetaType::Double:
        return saturatingInteger(v.toDouble());
    case QMetaType::Bool:
        return v.toBool() ? 1 : 0;
    case QMetaType::QString:
        return leadingInteger(v.toString());
    default:
        return 0;
    }
}

double Defaults::toReal(const QVariant& v) {
    switch (v.typeId()) {
    case QMetaType::LongLong:
        return double(v.toLongLong());
    case QMetaType::Double:
        return v.toDouble();
    case QMetaType::Bool:
        return v.toBool() ? 1.0 : 0.0;
    case QMetaType::QString:
        return leadingReal(v.toString());
    default:
        return 0.0;
    }
}

bool Defaults::toBool(const QVariant& v) {
    switch (v.typeId()) {
    case QMetaType::LongLong:
        return v.toLongLong() != 0;
    case QMetaType::Double:
        return v.toDouble() != 0.0;
    case QMetaType::Bool:
        return v.toBool();
    case QMetaType::QString: {
        // NSString's boolValue: "Y", "y", "T", "t" or a non-zero digit after optional
        // white space, sign and leading zeros.
        const QString s = v.toString();
        qsizetype i = 0;
        while (i < s.size() && isSpace(s[i]))
            ++i;
        if (i < s.size() && (s[i] == u'+' || s[i] == u'-'))
            ++i;
        while (i < s.size() && s[i] == u'0')
            ++i;
        if (i >= s.size())
            return false;
        const QChar c = s[i];
        return c == u'Y' || c == u'y' || c == u'T' || c == u't' || (c >= u'1' && c <= u'9');
    }
    default:
        return false;
    }
}

std::optional<QString> Defaults::toString(const QVariant& v) {
    switch (v.typeId()) {
    case QMetaType::QString:
        return v.toString();
    case QMetaType::LongLong:
        return QString::number(v.toLongLong());
    case QMetaType::Double:
        return QString::number(v.toDouble(), 'g', QLocale::FloatingPointShortest);
    case QMetaType::Bool:
        return v.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    default:
        return std::nullopt;
    }
}

std::optional<QByteArray> Defaults::toData(const QVariant& v) {
    if (v.typeId() == QMetaType::QByteArray)
        return v.toByteArray();
    return std::nullopt;
}

bool Defaults::isStorable(const QVariant& v) {
    switch (v.typeId()) {
    case QMetaType::Double:
        // SQLite keeps a NaN as NULL, which would read back as 0.0: refuse it instead.
        return !std::isnan(v.toDouble());
    case QMetaType::LongLong:
    case QMetaType::Bool:
    case QMetaType::QString:
    case QMetaType::QByteArray:
        return true;
    default:
        return false;
    }
}
