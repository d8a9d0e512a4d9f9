#include "PreferencesActions.h"

#include <cstdio>

PreferencesActions::PreferencesActions(LoginItem& loginItem, std::function<void()> rescheduleDigest,
                                       QObject* parent)
    : QObject(parent)
    , m_loginItem(loginItem)
    , m_rescheduleDigest(std::move(rescheduleDigest)) {
    syncLoginItem();
}

QString PreferencesActions::helpText(LoginItem::Status status) {
    switch (status) {
    case LoginItem::Status::notRegistered:
        return QStringLiteral("Enable to start Mindmeter automatically at login.");
    case LoginItem::Status::enabled:
        return QStringLiteral("Mindmeter starts automatically at login.");
    case LoginItem::Status::requiresApproval:
        return QStringLiteral(
            "Pending approval in System Settings \u2192 General \u2192 Login Items.");
    case LoginItem::Status::notFound:
        return QStringLiteral("Launch-at-login is unavailable for this build.");
    case LoginItem::Status::disabled:
        return {};
    }
    return {};
}

QString PreferencesActions::launchAtLoginHelp() const {
    return helpText(m_status);
}

void PreferencesActions::syncLoginItem() {
    m_status = m_loginItem.status();
    m_toggleOn =
        m_status == LoginItem::Status::enabled || m_status == LoginItem::Status::requiresApproval;
    emit launchAtLoginChanged();
}

void PreferencesActions::setLaunchAtLogin(bool on) {
    QString error;
    const bool ok = on ? m_loginItem.registerItem(&error) : m_loginItem.unregisterItem(&error);
    if (!ok) {
        std::printf("LaunchAtLogin error: %s\n", qPrintable(error));
        std::fflush(stdout);
    }
    // Either way the toggle shows what is really in place.
    syncLoginItem();
}

void PreferencesActions::rescheduleDigest() {
    if (m_rescheduleDigest)
        m_rescheduleDigest();
}
