#include "Format.h"

QString formatK(qint64 n) {
    if (n >= 1000)
        return QString::asprintf("%.1fk", double(n) / 1000.0);
    return QString::number(n);
}
