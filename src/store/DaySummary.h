#pragma once

#include <QObject>
#include <QVariant>

class DayStore;

// What the views show of the day store: today's totals and measures, and the published
// history, in the form QML reads (HistoryRows). Holds nothing itself; it reads the store and
// passes on its two change signals.
class DaySummary : public QObject {
    Q_OBJECT
    Q_PROPERTY(qint64 totalWeighted READ totalWeighted NOTIFY todayChanged)
    Q_PROPERTY(QVariantMap tokensByType READ tokensByType NOTIFY todayChanged)
    Q_PROPERTY(double contextSaturation READ contextSaturation NOTIFY todayChanged)
    Q_PROPERTY(double temperature READ temperature NOTIFY todayChanged)
    Q_PROPERTY(QVariantList historicalDays READ historicalDays NOTIFY historyChanged)
    Q_PROPERTY(QVariantList weeklyData READ weeklyData NOTIFY historyChanged)
    Q_PROPERTY(QVariant peakHourData READ peakHourData NOTIFY historyChanged)
    Q_PROPERTY(QVariant weekOverWeekData READ weekOverWeekData NOTIFY historyChanged)
    Q_PROPERTY(QVariant peakDayOfWeek READ peakDayOfWeek NOTIFY historyChanged)

public:
    explicit DaySummary(const DayStore& store, QObject* parent = nullptr);

    qint64 totalWeighted() const;
    QVariantMap tokensByType() const;
    double contextSaturation() const;
    double temperature() const;
    QVariantList historicalDays() const;
    QVariantList weeklyData() const;
    QVariant peakHourData() const;
    QVariant weekOverWeekData() const;
    QVariant peakDayOfWeek() const;

signals:
    void todayChanged();
    void historyChanged();

private:
    const DayStore& m_store;
};
