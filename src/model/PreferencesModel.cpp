#include "PreferencesModel.h"

#include "AppPreferences.h"
#include "MenuBarDisplay.h"

using P = AppPreferences;

PreferencesModel::PreferencesModel(Defaults& defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults) {
    connect(&m_defaults, &Defaults::valueChanged, this, &PreferencesModel::changed);
}

qint64 PreferencesModel::dailyBaseline() const {
    return P::dailyBaseline(m_defaults);
}
qint64 PreferencesModel::idleTimeoutMinutes() const {
    return qint64(P::idleTimeout(m_defaults) / 60);
}
QString PreferencesModel::menuBarStyle() const {
    return MenuBarDisplays::rawValue(P::menuBarDisplay(m_defaults));
}
QString PreferencesModel::countPlacement() const {
    return P::countPlacementValue(m_defaults);
}
bool PreferencesModel::hasLaunchedBefore() const {
    return P::hasLaunched(m_defaults);
}
bool PreferencesModel::alertEnabled() const {
    return P::proAlertIsEnabled(m_defaults);
}
qint64 PreferencesModel::alertThreshold() const {
    return P::alertThreshold(m_defaults);
}
bool PreferencesModel::tempAlertEnabled() const {
    return P::proTempAlertIsEnabled(m_defaults);
}
qint64 PreferencesModel::tempAlertThreshold() const {
    return P::tempAlertThreshold(m_defaults);
}
qint64 PreferencesModel::tempAlertMinutes() const {
    return P::tempAlertMinutes(m_defaults);
}
bool PreferencesModel::endOfDayEnabled() const {
    return P::proEndOfDayIsEnabled(m_defaults);
}
double PreferencesModel::endOfDayTime() const {
    return P::endOfDayTimeSeconds(m_defaults);
}
bool PreferencesModel::goalEnabled() const {
    return P::proDailyGoalIsEnabled(m_defaults);
}
qint64 PreferencesModel::dailyGoal() const {
    return P::dailyGoal(m_defaults);
}

void PreferencesModel::setDailyBaseline(qint64 v) {
    m_defaults.setInteger(P::dailyTokenBaseline, v);
}
void PreferencesModel::setIdleTimeoutMinutes(qint64 v) {
    m_defaults.setInteger(P::idleTimeoutMinutes, v);
}
void PreferencesModel::setMenuBarStyle(const QString& v) {
    m_defaults.setString(P::menuBarStyle, v);
}
void PreferencesModel::setCountPlacement(const QString& v) {
    m_defaults.setString(P::countPlacement, v);
}
void PreferencesModel::setHasLaunchedBefore(bool v) {
    m_defaults.setBool(P::hasLaunchedBefore, v);
}
void PreferencesModel::setAlertEnabled(bool v) {
    m_defaults.setBool(P::proAlertEnabled, v);
}
void PreferencesModel::setAlertThreshold(qint64 v) {
    m_defaults.setInteger(P::proAlertThreshold, v);
}
void PreferencesModel::setTempAlertEnabled(bool v) {
    m_defaults.setBool(P::proTempAlertEnabled, v);
}
void PreferencesModel::setTempAlertThreshold(qint64 v) {
    m_defaults.setInteger(P::proTempAlertThreshold, v);
}
void PreferencesModel::setTempAlertMinutes(qint64 v) {
    m_defaults.setInteger(P::proTempAlertMinutes, v);
}
void PreferencesModel::setEndOfDayEnabled(bool v) {
    m_defaults.setBool(P::proEndOfDayEnabled, v);
}
void PreferencesModel::setEndOfDayTime(double v) {
    m_defaults.setReal(P::proEndOfDayTime, v);
}
void PreferencesModel::setGoalEnabled(bool v) {
    m_defaults.setBool(P::proDailyGoalEnabled, v);
}
void PreferencesModel::setDailyGoal(qint64 v) {
    m_defaults.setInteger(P::proDailyGoal, v);
}
