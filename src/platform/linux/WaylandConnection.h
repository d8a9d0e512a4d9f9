#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include <memory>

struct wl_display;
struct wl_interface;
struct wl_registry;
class QSocketNotifier;

// Mindmeter's own connection to the Wayland compositor ($WAYLAND_DISPLAY), separate from
// the one Qt's platform plugin may hold. Its socket is read from the Qt event loop, as the
// X11 backend reads xcb's: events are dispatched when they arrive and nothing blocks
// afterwards. Shared by the workspace and the idle source of a Wayland session.
class WaylandConnection final : public QObject {
    Q_OBJECT
public:
    ~WaylandConnection() override;

    // Null, with the reason in *error, when no compositor answers.
    static std::unique_ptr<WaylandConnection> open(QString* error);

    // The version of a global the compositor offers, 0 when it offers none.
    quint32 offered(const char* interface) const;
    // Binds the global of that interface at the highest version both sides know; null when
    // it is not offered.
    void* bind(const wl_interface* interface, quint32 maxVersion) const;

    // Sends requests made since the last event-loop turn.
    void flush() const;
    // True once the compositor is gone; nothing more will arrive.
    bool isLost() const { return m_lost; }
    wl_display* display() const { return m_display; }

signals:
    // The compositor closed the connection or reported a protocol error.
    void lost();

private:
    explicit WaylandConnection(wl_display* display);
    void readEvents();
    bool failed();

    struct Global {
        quint32 name = 0;
        quint32 version = 0;
    };
    static void onGlobal(void* data, wl_registry*, quint32 name, const char* interface,
                         quint32 version);
    static void onGlobalRemove(void* data, wl_registry*, quint32 name);

    wl_display* m_display = nullptr;
    wl_registry* m_registry = nullptr;
    QHash<QByteArray, Global> m_globals;
    std::unique_ptr<QSocketNotifier> m_notifier;
    bool m_lost = false;
};
