#pragma once

#include <QDateTime>

#include <compare>

// A point in time as seconds since 2001-01-01 00:00:00 UTC, the form in which stored days
// carry their times. Kept as the double itself so a stored day reads and writes back
// without losing sub-millisecond digits.
struct Timestamp {
    static constexpr qint64 referenceEpochMs = 978307200000; // 2001-01-01T00:00:00Z

    double secondsSinceReference = 0.0;

    static Timestamp fromDateTime(const QDateTime& dt) {
        return {double(dt.toMSecsSinceEpoch() - referenceEpochMs) / 1000.0};
    }

    // Times beyond about ±290,000 years are clamped so conversion stays defined.
    QDateTime toDateTime() const {
        constexpr double limit = 9.0e12; // seconds
        double s = secondsSinceReference;
        if (!(s == s))
            s = 0.0;
        s = s > limit ? limit : (s < -limit ? -limit : s);
        return QDateTime::fromMSecsSinceEpoch(qint64(s * 1000.0) + referenceEpochMs, Qt::UTC);
    }

    Timestamp addSeconds(double s) const { return {secondsSinceReference + s}; }
    double operator-(const Timestamp& other) const {
        return secondsSinceReference - other.secondsSinceReference;
    }
    auto operator<=>(const Timestamp&) const = default;
};
