#include "AppPreferences.h"

#include "CheckedMath.h"

namespace {
qint64 positiveOr(const Defaults& d, const QString& key, qint64 fallback) {
    const qint64 v = d.integer(key);
    return v > 0 ? v : fallback;
}
} // namespace

qint64 AppPreferences::dailyBaseline(const Defaults& d) {
    return positiveOr(d, dailyTokenBaseline, 25000);
}

double AppPreferences::idleTimeout(const Defaults& d) {
    const qint64 minutes = d.integer(idleTimeoutMinutes);
    return minutes >= 1 ? double(checkedMultiply(minutes, 60)) : 180.0;
}

bool AppPreferences::hasLaunched(const Defaults& d) {
    return d.boolean(hasLaunchedBefore);
}

MenuBarDisplay AppPreferences::menuBarDisplay(const Defaults& d) {
    const std::optional<QString> stored = d.string(menuBarStyle);
    if (!stored)
        return MenuBarDisplay::iconAndCount;
    return MenuBarDisplays::fromRawValue(*stored).value_or(MenuBarDisplay::iconAndCount);
}

QString AppPreferences::countPlacementValue(const Defaults& d) {
    const QString stored = d.string(countPlacement).value_or(QString());
    if (stored == QLatin1String("beside") || stored == QLatin1String("inIcon"))
        return stored;
    return QStringLiteral("automatic");
}

bool AppPreferences::proAlertIsEnabled(const Defaults& d) {
    return d.boolean(proAlertEnabled);
}

bool AppPreferences::proTempAlertIsEnabled(const Defaults& d) {
    return d.boolean(proTempAlertEnabled);
}

bool AppPreferences::proEndOfDayIsEnabled(const Defaults& d) {
    return d.boolean(proEndOfDayEnabled);
}

bool AppPreferences::proDailyGoalIsEnabled(const Defaults& d) {
    return d.boolean(proDailyGoalEnabled);
}

qint64 AppPreferences::alertThreshold(const Defaults& d) {
    return positiveOr(d, proAlertThreshold, 80);
}

qint64 AppPreferences::tempAlertThreshold(const Defaults& d) {
    return positiveOr(d, proTempAlertThreshold, 85);
}

qint64 AppPreferences::tempAlertMinutes(const Defaults& d) {
    return positiveOr(d, proTempAlertMinutes, 20);
}

double AppPreferences::endOfDayTimeSeconds(const Defaults& d) {
    const double v = d.real(proEndOfDayTime);
    return v > 0.0 ? v : 66600.0;
}

qint64 AppPreferences::dailyGoal(const Defaults& d) {
    return positiveOr(d, proDailyGoal, 20000);
}
