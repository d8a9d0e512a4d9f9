#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

// One day of the history, newest first in every list that holds them.
struct DayRow {
    QDateTime date;
    QString label;
    qint64 tokens = 0;
    bool isToday = false;
    bool operator==(const DayRow&) const = default;
};

struct WeekdayTokens {
    QString label;
    qint64 tokens = 0;
    bool isToday = false;
    bool operator==(const WeekdayTokens&) const = default;
};

struct PeakHour {
    int hour = 0;
    QString label;
    bool operator==(const PeakHour&) const = default;
};

struct WeekOverWeek {
    qint64 thisWeek = 0;
    qint64 lastWeek = 0;
    double change = 0.0;
    bool operator==(const WeekOverWeek&) const = default;
};

struct HourBucket {
    int hour = 0;
    QString label;
    qint64 tokens = 0;
    bool operator==(const HourBucket&) const = default;
};

// Everything one history computation publishes.
struct HistoryResult {
    QList<DayRow> extendedHistory;
    QList<DayRow> historicalDays;
    QList<WeekdayTokens> weeklyData;
    std::optional<PeakHour> peakHourData;
    std::optional<WeekOverWeek> weekOverWeekData;
    std::optional<QString> peakDayOfWeek;
    qint64 cachedVelocity = 0;
    QList<HourBucket> cachedHourlyBuckets;
};
