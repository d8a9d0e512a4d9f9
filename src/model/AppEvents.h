#pragma once

#include <QObject>

// The program's own announcements between parts that do not know each other:
// "mindmeter.onboardingComplete" and "mindmeter.openPreferences", and a window's request to quit.
class AppEvents : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    Q_INVOKABLE void postOnboardingComplete() { emit onboardingComplete(); }
    Q_INVOKABLE void postOpenPreferences() { emit openPreferences(); }
    Q_INVOKABLE void postQuit() { emit quitRequested(); }

signals:
    void onboardingComplete();
    void openPreferences();
    // Quit asked for from a window (its keyboard shortcut), as the menu's "Quit" does.
    void quitRequested();
};
