#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

// Number and text formats of the dashboard, done in C++ so they round exactly as printf
// does ("%.1fk", "%.0f%%").
class Formats : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
public:
    using QObject::QObject;

    Q_INVOKABLE static QString formatK(qint64 n);
    // v × 100 as "%.0f%%".
    Q_INVOKABLE static QString percent(double v);
    // "×1.4 token multiplier".
    Q_INVOKABLE static QString multiplier(double m);
    // "1 app switch this hour", "7 app switches this hour".
    Q_INVOKABLE static QString switches(qint64 count);
    // Week-over-week change: "↑" or "↓", then the whole percent, truncated.
    Q_INVOKABLE static QString change(double fraction);
    // A whole percentage, truncated: "73%".
    Q_INVOKABLE static QString truncatedPercent(double fraction);
    // A count in thousands, "%.0fk" (20000 → "20k").
    Q_INVOKABLE static QString thousands(qint64 n);
    // A plain integer ("%lld").
    Q_INVOKABLE static QString integer(qint64 n);
};
