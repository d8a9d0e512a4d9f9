#pragma once

#include "platform/Defaults.h"

#include <QObject>

// The settings as properties for the views and the preferences window. Reads go through
// AppPreferences, so defaults apply exactly as everywhere else; writes store the key at once.
// Every property notifies whenever any setting changes.
class PreferencesModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(qint64 dailyBaseline READ dailyBaseline WRITE setDailyBaseline NOTIFY changed)
    Q_PROPERTY(qint64 idleTimeoutMinutes READ idleTimeoutMinutes WRITE setIdleTimeoutMinutes NOTIFY
                   changed)
    Q_PROPERTY(QString menuBarStyle READ menuBarStyle WRITE setMenuBarStyle NOTIFY changed)
    Q_PROPERTY(QString countPlacement READ countPlacement WRITE setCountPlacement NOTIFY changed)
    Q_PROPERTY(
        bool hasLaunchedBefore READ hasLaunchedBefore WRITE setHasLaunchedBefore NOTIFY changed)
    Q_PROPERTY(bool alertEnabled READ alertEnabled WRITE setAlertEnabled NOTIFY changed)
    Q_PROPERTY(qint64 alertThreshold READ alertThreshold WRITE setAlertThreshold NOTIFY changed)
    Q_PROPERTY(bool tempAlertEnabled READ tempAlertEnabled WRITE setTempAlertEnabled NOTIFY changed)
    Q_PROPERTY(qint64 tempAlertThreshold READ tempAlertThreshold WRITE setTempAlertThreshold NOTIFY
                   changed)
    Q_PROPERTY(
        qint64 tempAlertMinutes READ tempAlertMinutes WRITE setTempAlertMinutes NOTIFY changed)
    Q_PROPERTY(bool endOfDayEnabled READ endOfDayEnabled WRITE setEndOfDayEnabled NOTIFY changed)
    Q_PROPERTY(double endOfDayTime READ endOfDayTime WRITE setEndOfDayTime NOTIFY changed)
    Q_PROPERTY(bool goalEnabled READ goalEnabled WRITE setGoalEnabled NOTIFY changed)
    Q_PROPERTY(qint64 dailyGoal READ dailyGoal WRITE setDailyGoal NOTIFY changed)

public:
    explicit PreferencesModel(Defaults& defaults, QObject* parent = nullptr);

    qint64 dailyBaseline() const;
    qint64 idleTimeoutMinutes() const;
    QString menuBarStyle() const;
    QString countPlacement() const;
    bool hasLaunchedBefore() const;
    bool alertEnabled() const;
    qint64 alertThreshold() const;
    bool tempAlertEnabled() const;
    qint64 tempAlertThreshold() const;
    qint64 tempAlertMinutes() const;
    bool endOfDayEnabled() const;
    double endOfDayTime() const;
    bool goalEnabled() const;
    qint64 dailyGoal() const;

    void setDailyBaseline(qint64 v);
    void setIdleTimeoutMinutes(qint64 v);
    void setMenuBarStyle(const QString& v);
    void setCountPlacement(const QString& v);
    void setHasLaunchedBefore(bool v);
    void setAlertEnabled(bool v);
    void setAlertThreshold(qint64 v);
    void setTempAlertEnabled(bool v);
    void setTempAlertThreshold(qint64 v);
    void setTempAlertMinutes(qint64 v);
    void setEndOfDayEnabled(bool v);
    void setEndOfDayTime(double v);
    void setGoalEnabled(bool v);
    void setDailyGoal(qint64 v);

signals:
    void changed();

private:
    Defaults& m_defaults;
};
