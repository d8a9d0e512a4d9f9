#pragma once

#include <QObject>

// The program's own announcements between parts that do not know each other:
// "mindmeter.onboardingComplete" and "mindmeter.openPreferences"; and what keeps the program
// from seeing the desktop, for the welcome page to say.
class AppEvents : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString desktopNotice READ desktopNotice NOTIFY desktopNoticeChanged)
public:
    using QObject::QObject;

    // Empty while the desktop can be followed.
    QString desktopNotice() const { return m_desktopNotice; }
    void setDesktopNotice(const QString& notice) {
        if (notice == m_desktopNotice)
            return;
        m_desktopNotice = notice;
        emit desktopNoticeChanged();
    }

    Q_INVOKABLE void postOnboardingComplete() { emit onboardingComplete(); }
    Q_INVOKABLE void postOpenPreferences() { emit openPreferences(); }

signals:
    void onboardingComplete();
    void openPreferences();
    void desktopNoticeChanged();

private:
    QString m_desktopNotice;
};
