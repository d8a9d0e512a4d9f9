#include "OnboardingNote.h"

#include <utility>

OnboardingNote::OnboardingNote(Text text, QObject* parent)
    : QObject(parent)
    , m_text(std::move(text)) {}

OnboardingNote::Text OnboardingNote::forSession(const QString& sessionType,
                                                const QString& desktop) {
#ifdef Q_OS_MACOS
    Q_UNUSED(sessionType);
    Q_UNUSED(desktop);
    return {QStringLiteral("safari"), QStringLiteral("orange"),
            QStringLiteral("One permission needed"),
            QStringLiteral("macOS will ask for browser Automation access the first time you open "
                           "Claude or ChatGPT.")};
#else
    const bool gnome =
        desktop.split(QLatin1Char(':')).contains(QLatin1String("GNOME"), Qt::CaseInsensitive);
    if (gnome && sessionType.compare(QLatin1String("wayland"), Qt::CaseInsensitive) == 0)
        // GNOME's Wayland compositor tells no other program which window is in front.
        return {QStringLiteral("desktopcomputer"), QStringLiteral("orange"),
                QStringLiteral("One extension needed"),
                QStringLiteral("GNOME shows the app in front only to Mindmeter's shell extension. "
                               "Turn it on with:\ngnome-extensions enable ") +
                    gnomeExtensionUuid};
    return {QStringLiteral("safari"), QStringLiteral("green"),
            QStringLiteral("No permission needed"),
            QStringLiteral("Nothing to allow on Linux: the open Firefox tab is read from its "
                           "session file, on this machine only.")};
#endif
}

OnboardingNote::Text OnboardingNote::forThisSession() {
    return forSession(qEnvironmentVariable("XDG_SESSION_TYPE"),
                      qEnvironmentVariable("XDG_CURRENT_DESKTOP"));
}

void OnboardingNote::setText(const Text& text) {
    if (text == m_text)
        return;
    m_text = text;
    emit changed();
}
