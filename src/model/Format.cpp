#include "Format.h"

#include <cstdio>

QString formatK(qint64 n) {
    if (n >= 1000)
        return printfDouble("%.1fk", double(n) / 1000.0);
    return QString::number(n);
}

QString printfDouble(const char* format, double value) {
    char small[64];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::snprintf(small, sizeof small, format, value);
    if (length < 0)
        return {};
    if (size_t(length) < sizeof small)
        return QString::fromUtf8(small, length);
    QByteArray large(length + 1, '\0');
    std::snprintf(large.data(), size_t(large.size()), format, value);
#pragma GCC diagnostic pop
    return QString::fromUtf8(large.constData(), length);
}
