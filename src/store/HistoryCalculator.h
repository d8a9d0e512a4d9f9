#pragma once

#include "HistoryTypes.h"
#include "StoredDaySummaries.h"

#include "model/ActivitySession.h"

#include <QDateTime>
#include <QList>

// Builds the history, trends and load curve from the stored days plus a snapshot of today.
// Reads only the settings database and its arguments, so it runs on any thread; one
// calculator keeps the decoded past days between runs.
class HistoryCalculator {
public:
    static constexpr int historyDays = 90;
    static constexpr int peakHourDays = 30;

    explicit HistoryCalculator(const Defaults& defaults);

    HistoryResult compute(const QDateTime& now, qint64 currentTotal,
                          const QList<ActivitySession>& todaySessions);

    // Parts of the computation, exposed for the command line and tests.
    std::optional<PeakHour> buildPeakHour(const QDateTime& now);
    static std::optional<WeekOverWeek> buildWeekOverWeek(const QList<DayRow>& history);
    static std::optional<QString> buildPeakDayOfWeek(const QList<DayRow>& history);

    qint64 decodedDayCount() const { return m_summaries.decodeCount(); }

private:
    std::optional<DayRow> row(const QDateTime& now, int offset, qint64 currentTotal);

    StoredDaySummaries m_summaries;
};
