#pragma once

#include "RunningApp.h"

#include <QList>
#include <QObject>
#include <QTimer>

#include <optional>

// The desktop's view of applications: which one is in front, which are open, and when
// the front one changes or the machine wakes. Queried and signalled on the main thread.
// On Linux a window system or compositor backend (X11, wlroots, KWin, GNOME Shell).
class Workspace : public QObject {
    Q_OBJECT
public:
    explicit Workspace(QObject* parent = nullptr)
        : QObject(parent) {
        m_nothingInFrontGrace.setSingleShot(true);
        m_nothingInFrontGrace.setInterval(nothingInFrontGraceMs);
        m_nothingInFrontGrace.callOnTimeout(this, [this] {
            if (!frontmostApplication())
                emit nothingInFront();
        });
    }

    virtual std::optional<RunningApp> frontmostApplication() const = 0;
    // Open applications in the desktop's order, regular or not.
    virtual QList<RunningApp> runningApplications() const = 0;

    // How long "no window in front" must last before it counts: on several desktops the
    // focus passes through no window on its way from one window to the next.
    static constexpr int nothingInFrontGraceMs = 1000;

signals:
    // A different application came to the front.
    void applicationActivated(const RunningApp& app);
    // No application is in front any more and none came forward in its place: the last
    // window closed or the desktop itself has the focus, or the desktop's source of front
    // applications went away. Whatever comes to the front next is an activation.
    void nothingInFront();
    // The machine woke from sleep.
    void didWake();

protected:
    // A backend saw no window in front. Announced as nothingInFront() once the grace has
    // passed with still no application in front; at once when the source itself is gone.
    void noWindowInFront(bool sourceGone = false) {
        if (sourceGone) {
            m_nothingInFrontGrace.stop();
            emit nothingInFront();
            return;
        }
        if (!m_nothingInFrontGrace.isActive())
            m_nothingInFrontGrace.start();
    }

private:
    QTimer m_nothingInFrontGrace;
};
