#pragma once

#include <QObject>
#include <QString>

// The welcome page's last row: the one thing the desktop may ask of the user before
// tracking works. It says what this desktop really needs, and the backend that knows better
// (for example one that sees the GNOME Shell extension turn on) may change it at any time.
class OnboardingNote : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString icon READ icon NOTIFY changed)
    Q_PROPERTY(QString colour READ colour NOTIFY changed)
    Q_PROPERTY(QString title READ title NOTIFY changed)
    Q_PROPERTY(QString description READ description NOTIFY changed)
public:
    struct Text {
        QString icon;   // a symbol name
        QString colour; // a colour name of the views' palette ("orange", "green", ...)
        QString title;
        QString description;
        bool operator==(const Text&) const = default;
    };

    inline static const QString gnomeExtensionUuid = QStringLiteral("mindmeter@mindmeter.app");

    explicit OnboardingNote(Text text, QObject* parent = nullptr);

    // What a session of this type (XDG_SESSION_TYPE) on this desktop (XDG_CURRENT_DESKTOP)
    // needs: on GNOME under Wayland the shell extension, elsewhere on Linux nothing.
    static Text forSession(const QString& sessionType, const QString& desktop);
    // The same, for the session this process runs in.
    static Text forThisSession();

    QString icon() const { return m_text.icon; }
    QString colour() const { return m_text.colour; }
    QString title() const { return m_text.title; }
    QString description() const { return m_text.description; }
    void setText(const Text& text);

signals:
    void changed();

private:
    Text m_text;
};
