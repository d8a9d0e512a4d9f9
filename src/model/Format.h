#pragma once

#include <QString>

// Token counts for display: 1000 and above as thousands with one decimal ("12.3k"),
// anything smaller as the plain integer.
QString formatK(qint64 n);

// One double formatted as C's printf formats it: the binary value rounded half to even
// (1.25 with "%.1f" gives "1.2", 12.5 with "%.0f" gives "12"), which Qt's own formatting
// rounds the other way. The format takes exactly one double.
QString printfDouble(const char* format, double value);
