#include "HistoryRows.h"

#include "DayKeys.h"

namespace HistoryRows {

QVariantList days(const QList<DayRow>& rows) {
    QVariantList list;
    list.reserve(rows.size());
    for (const DayRow& r : rows)
        list.append(QVariantMap{{QStringLiteral("date"), DayKeys::dayText(r.date)},
                                {QStringLiteral("label"), r.label},
                                {QStringLiteral("tokens"), r.tokens},
                                {QStringLiteral("isToday"), r.isToday}});
    return list;
}

QVariantList weekdays(const QList<WeekdayTokens>& rows) {
    QVariantList list;
    list.reserve(rows.size());
    for (const WeekdayTokens& w : rows)
        list.append(QVariantMap{{QStringLiteral("label"), w.label},
                                {QStringLiteral("tokens"), w.tokens},
                                {QStringLiteral("isToday"), w.isToday}});
    return list;
}

QVariantList hours(const QList<HourBucket>& buckets) {
    QVariantList list;
    list.reserve(buckets.size());
    for (const HourBucket& b : buckets)
        list.append(QVariantMap{{QStringLiteral("hour"), b.hour},
                                {QStringLiteral("label"), b.label},
                                {QStringLiteral("tokens"), b.tokens}});
    return list;
}

QVariant peakHour(const std::optional<PeakHour>& peak) {
    if (!peak)
        return {};
    return QVariantMap{{QStringLiteral("hour"), peak->hour},
                       {QStringLiteral("label"), peak->label}};
}

QVariant weekOverWeek(const std::optional<WeekOverWeek>& week) {
    if (!week)
        return {};
    return QVariantMap{{QStringLiteral("this"), week->thisWeek},
                       {QStringLiteral("last"), week->lastWeek},
                       {QStringLiteral("change"), week->change}};
}

QVariant peakDay(const std::optional<QString>& day) {
    return day ? QVariant(*day) : QVariant();
}

QVariantMap tokensByType(const QMap<TokenType, qint64>& tokens) {
    QVariantMap map;
    for (auto it = tokens.cbegin(); it != tokens.cend(); ++it)
        map.insert(TokenTypes::rawValue(it.key()), it.value());
    return map;
}

} // namespace HistoryRows
