#pragma once

#include "HistoryTypes.h"

#include "model/TokenType.h"

#include <QMap>
#include <QVariant>

// The one outside form of today's figures and the history: the views read these values as
// they are, and the command line writes them as JSON (QJsonValue::fromVariant), so both
// show the same field names. Absent values are null.
namespace HistoryRows {

// date ("yyyy-MM-dd", local), label, tokens, isToday
QVariantList days(const QList<DayRow>& rows);
// label, tokens, isToday
QVariantList weekdays(const QList<WeekdayTokens>& rows);
// hour, label, tokens
QVariantList hours(const QList<HourBucket>& buckets);
// hour, label
QVariant peakHour(const std::optional<PeakHour>& peak);
// this, last, change
QVariant weekOverWeek(const std::optional<WeekOverWeek>& week);
QVariant peakDay(const std::optional<QString>& day);
// Token type's raw value to its weighted tokens.
QVariantMap tokensByType(const QMap<TokenType, qint64>& tokens);

} // namespace HistoryRows
