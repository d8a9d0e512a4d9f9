#pragma once

#include <QObject>

// The program's own announcements between parts that do not know each other:
// "mindmeter.onboardingComplete" and "mindmeter.openPreferences".
class AppEvents : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    Q_INVOKABLE void postOnboardingComplete() { emit onboardingComplete(); }
    Q_INVOKABLE void postOpenPreferences() { emit openPreferences(); }

signals:
    void onboardingComplete();
    void openPreferences();
};
