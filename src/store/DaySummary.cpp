#include "DaySummary.h"

#include "DayStore.h"
#include "HistoryRows.h"

DaySummary::DaySummary(const DayStore& store, QObject* parent)
    : QObject(parent)
    , m_store(store) {
    connect(&store, &DayStore::todayChanged, this, &DaySummary::todayChanged);
    connect(&store, &DayStore::historyPublished, this, &DaySummary::historyChanged);
}

qint64 DaySummary::totalWeighted() const {
    return m_store.totalWeighted();
}

QVariantMap DaySummary::tokensByType() const {
    return HistoryRows::tokensByType(m_store.tokensByType());
}

double DaySummary::contextSaturation() const {
    return m_store.contextSaturation();
}

double DaySummary::temperature() const {
    return m_store.temperature();
}

QVariantList DaySummary::historicalDays() const {
    return HistoryRows::days(m_store.history().historicalDays);
}

QVariantList DaySummary::weeklyData() const {
    return HistoryRows::weekdays(m_store.history().weeklyData);
}

QVariant DaySummary::peakHourData() const {
    return HistoryRows::peakHour(m_store.history().peakHourData);
}

QVariant DaySummary::weekOverWeekData() const {
    return HistoryRows::weekOverWeek(m_store.history().weekOverWeekData);
}

QVariant DaySummary::peakDayOfWeek() const {
    return HistoryRows::peakDay(m_store.history().peakDayOfWeek);
}
