#pragma once

#include "platform/LoginItem.h"

#include <QObject>

#include <functional>

// What the preferences window does besides writing settings: launch at login, and
// rescheduling the digest as soon as its time changes.
class PreferencesActions : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin NOTIFY launchAtLoginChanged)
    Q_PROPERTY(QString launchAtLoginHelp READ launchAtLoginHelp NOTIFY launchAtLoginChanged)
public:
    PreferencesActions(LoginItem& loginItem, std::function<void()> rescheduleDigest,
                       QObject* parent = nullptr);

    bool launchAtLogin() const { return m_toggleOn; }
    QString launchAtLoginHelp() const;
    static QString helpText(LoginItem::Status status);

    // Reads the real state (on opening the window, and whenever it is shown again).
    Q_INVOKABLE void syncLoginItem();
    Q_INVOKABLE void setLaunchAtLogin(bool on);
    Q_INVOKABLE void rescheduleDigest();

signals:
    void launchAtLoginChanged();

private:
    LoginItem& m_loginItem;
    std::function<void()> m_rescheduleDigest;
    LoginItem::Status m_status = LoginItem::Status::notRegistered;
    bool m_toggleOn = false;
};
