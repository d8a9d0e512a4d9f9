#pragma once

#include "HistoryTypes.h"

#include "model/ActivitySession.h"
#include "model/TokenType.h"

#include <QDateTime>
#include <QList>
#include <QMap>

// The instant measures of a day's load, computed from today's sessions and totals.
namespace LoadMetrics {

// 0 → "12 AM", 12 → "12 PM", 13 → "1 PM".
QString hourLabel(int hour);

// totalWeighted / baseline, at most 1.
double contextSaturation(qint64 totalWeighted, qint64 baseline);

// Normalised Shannon entropy of the per-type mix: 0 for one kind of work, 1 for an even
// split across all four.
double temperature(const QMap<TokenType, qint64>& tokensByType);

// Weighted tokens of the sessions that started in the hour before now.
qint64 velocity(const QList<ActivitySession>& sessions, const QDateTime& now);

// The last `last` clock hours up to now, oldest first; each session counts wholly in the
// hour it started. A negative count stops the process.
QList<HourBucket> hourlyBuckets(const QList<ActivitySession>& sessions, const QDateTime& now,
                                int last = 8);

// The local clock hour of a stored time.
int localHour(const Timestamp& t);

} // namespace LoadMetrics
