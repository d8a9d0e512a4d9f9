#pragma once

#include <QString>

// Token counts for display: 1000 and above as thousands with one decimal ("12.3k"),
// anything smaller as the plain integer.
QString formatK(qint64 n);
