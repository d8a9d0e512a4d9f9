#pragma once

#include "MenuBarDisplay.h"

#include "platform/Defaults.h"

#include <QString>

// The settings keys and their typed getters. Defaults live only here: every getter reads
// the database afresh and maps a missing, zero or negative value onto the same default.
class AppPreferences {
public:
    AppPreferences() = delete;

    inline static const QString dailyTokenBaseline = QStringLiteral("mindmeter.dailyTokenBaseline");
    inline static const QString idleTimeoutMinutes = QStringLiteral("mindmeter.idleTimeoutMinutes");
    inline static const QString menuBarStyle = QStringLiteral("mindmeter.menuBarStyle");
    // Where the panel shows the count: "automatic", "beside" (text beside the icon) or "inIcon".
    inline static const QString countPlacement = QStringLiteral("mindmeter.countPlacement");
    inline static const QString hasLaunchedBefore = QStringLiteral("mindmeter.hasLaunchedBefore");
    inline static const QString proAlertEnabled = QStringLiteral("mindmeter.pro.alertEnabled");
    inline static const QString proAlertThreshold = QStringLiteral("mindmeter.pro.alertThreshold");
    inline static const QString proTempAlertEnabled =
        QStringLiteral("mindmeter.pro.tempAlertEnabled");
    inline static const QString proTempAlertThreshold =
        QStringLiteral("mindmeter.pro.tempAlertThreshold");
    inline static const QString proTempAlertMinutes =
        QStringLiteral("mindmeter.pro.tempAlertMinutes");
    inline static const QString proEndOfDayEnabled =
        QStringLiteral("mindmeter.pro.endOfDayEnabled");
    inline static const QString proEndOfDayTime = QStringLiteral("mindmeter.pro.endOfDayTime");
    // Stored as "goalEnabled": the key text is what is persisted, so it stays as it is.
    inline static const QString proDailyGoalEnabled = QStringLiteral("mindmeter.pro.goalEnabled");
    inline static const QString proDailyGoal = QStringLiteral("mindmeter.pro.dailyGoal");
    inline static const QString notifThresholdFiredDate =
        QStringLiteral("mindmeter.notif.thresholdFiredDate");
    inline static const QString notifHighTempFiredTime =
        QStringLiteral("mindmeter.notif.highTempFiredTime");

    static qint64 dailyBaseline(const Defaults& d);
    static double idleTimeout(const Defaults& d);
    static bool hasLaunched(const Defaults& d);
    static MenuBarDisplay menuBarDisplay(const Defaults& d);
    // The stored placement when it is one of the three, else "automatic".
    static QString countPlacementValue(const Defaults& d);
    static bool proAlertIsEnabled(const Defaults& d);
    static bool proTempAlertIsEnabled(const Defaults& d);
    static bool proEndOfDayIsEnabled(const Defaults& d);
    static bool proDailyGoalIsEnabled(const Defaults& d);
    static qint64 alertThreshold(const Defaults& d);
    static qint64 tempAlertThreshold(const Defaults& d);
    static qint64 tempAlertMinutes(const Defaults& d);
    static double endOfDayTimeSeconds(const Defaults& d);
    static qint64 dailyGoal(const Defaults& d);
};
