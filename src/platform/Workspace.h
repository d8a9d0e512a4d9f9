#pragma once

#include "RunningApp.h"

#include <QList>
#include <QObject>

#include <optional>

// The desktop's view of applications: which one is in front, which are open, and when
// the front one changes or the machine wakes. Queried and signalled on the main thread.
// On Linux a window system or compositor backend (X11, wlroots, KWin, GNOME Shell).
class Workspace : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    virtual std::optional<RunningApp> frontmostApplication() const = 0;
    // Open applications in the desktop's order, regular or not.
    virtual QList<RunningApp> runningApplications() const = 0;

signals:
    // A different application came to the front.
    void applicationActivated(const RunningApp& app);
    // The machine woke from sleep.
    void didWake();
};
