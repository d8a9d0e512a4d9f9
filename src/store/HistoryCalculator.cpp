#include "HistoryCalculator.h"

#include "DayKeys.h"
#include "LoadMetrics.h"

#include "model/CheckedMath.h"

#include <QLocale>

#include <array>

HistoryCalculator::HistoryCalculator(const Defaults& defaults)
    : m_summaries(defaults) {}

std::optional<DayRow> HistoryCalculator::row(const QDateTime& now, int offset,
                                             qint64 currentTotal) {
    // Calendar arithmetic on the day keeps the time of day across daylight-saving changes.
    const QDateTime date = now.toLocalTime().addDays(-offset);
    if (!date.isValid())
        return std::nullopt;
    if (offset == 0)
        return DayRow{date, QStringLiteral("Today"), currentTotal, true};

    const std::optional<StoredDaySummary> day = m_summaries.summary(DayKeys::dayText(date));
    if (!day || day->grossTokens <= 0)
        return std::nullopt;
    const QString label = offset == 1 ? QStringLiteral("Yest.")
                                      : QLocale().toString(date.date(), QStringLiteral("ddd"));
    return DayRow{date, label, day->grossTokens, false};
}

std::optional<PeakHour> HistoryCalculator::buildPeakHour(const QDateTime& now) {
    std::array<qint64, 24> sums{};
    std::array<bool, 24> present{};
    const QDateTime local = now.toLocalTime();
    for (int i = 0; i < peakHourDays; ++i) {
        const QDateTime date = local.addDays(-i);
        if (!date.isValid())
            continue;
        // Today too comes from its stored copy, which every recorded session rewrites.
        const std::optional<StoredDaySummary> day = m_summaries.summary(DayKeys::dayText(date));
        if (!day)
            continue;
        for (int h = 0; h < 24; ++h) {
            if (!day->hourHasSessions[h])
                continue;
            sums[h] = checkedAdd(sums[h], day->hourTokens[h]);
            present[h] = true;
        }
    }
    std::optional<int> best;
    for (int h = 0; h < 24; ++h)
        if (present[h] && (!best || sums[h] > sums[*best]))
            best = h; // among equal sums the earliest hour wins
    if (!best)
        return std::nullopt;
    return PeakHour{*best, LoadMetrics::hourLabel(*best)};
}

std::optional<WeekOverWeek> HistoryCalculator::buildWeekOverWeek(const QList<DayRow>& history) {
    if (history.size() < 8)
        return std::nullopt;
    qint64 thisWeek = 0;
    qint64 lastWeek = 0;
    for (qsizetype i = 0; i < 7; ++i)
        thisWeek = checkedAdd(thisWeek, history[i].tokens);
    for (qsizetype i = 7; i < std::min<qsizetype>(14, history.size()); ++i)
        lastWeek = checkedAdd(lastWeek, history[i].tokens);
    if (lastWeek <= 0)
        return std::nullopt;
    // Differences of two 64-bit counts are taken in double: only the ratio is wanted.
    const double change = (double(thisWeek) - double(lastWeek)) / double(lastWeek);
    return WeekOverWeek{thisWeek, lastWeek, change};
}

std::optional<QString> HistoryCalculator::buildPeakDayOfWeek(const QList<DayRow>& history) {
    if (history.isEmpty())
        return std::nullopt;
    // Index 0 = Sunday ... 6 = Saturday.
    std::array<qint64, 7> sums{};
    std::array<qint64, 7> counts{};
    for (const DayRow& r : history) {
        const int weekday = r.date.date().dayOfWeek() % 7; // Qt: Monday = 1 ... Sunday = 7
        sums[weekday] = checkedAdd(sums[weekday], r.tokens);
        ++counts[weekday];
    }
    std::optional<int> best;
    qint64 bestAverage = 0;
    for (int d = 0; d < 7; ++d) {
        if (counts[d] == 0)
            continue;
        const qint64 average = sums[d] / counts[d];
        if (!best || average > bestAverage) {
            best = d;
            bestAverage = average;
        }
    }
    const int qtWeekday = *best == 0 ? 7 : *best;
    return QLocale().dayName(qtWeekday, QLocale::LongFormat);
}

HistoryResult HistoryCalculator::compute(const QDateTime& now, qint64 currentTotal,
                                         const QList<ActivitySession>& todaySessions) {
    m_summaries.beginPass(now.toLocalTime().date());
    HistoryResult r;
    for (int i = 0; i < historyDays; ++i)
        if (std::optional<DayRow> day = row(now, i, currentTotal))
            r.extendedHistory.append(std::move(*day));

    r.historicalDays = r.extendedHistory.first(std::min<qsizetype>(7, r.extendedHistory.size()));
    for (auto it = r.historicalDays.crbegin(); it != r.historicalDays.crend(); ++it)
        r.weeklyData.append({it->label, it->tokens, it->isToday});
    r.peakHourData = buildPeakHour(now);
    r.weekOverWeekData = buildWeekOverWeek(r.extendedHistory);
    r.peakDayOfWeek = buildPeakDayOfWeek(r.extendedHistory);
    r.cachedVelocity = LoadMetrics::velocity(todaySessions, now);
    r.cachedHourlyBuckets = LoadMetrics::hourlyBuckets(todaySessions, now, 8);
    m_summaries.endPass();
    return r;
}
