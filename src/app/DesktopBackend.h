#pragma once

#include "platform/IdleSource.h"
#include "platform/Workspace.h"

#include <QString>
#include <QStringList>

#include <memory>

class AppIdentityResolver;
class Clock;

// How the desktop is followed: the workspace (which application is in front, which are
// open), the idle source, and one line naming them for the log and `mindmeter track`.
struct DesktopBackend {
    std::unique_ptr<Workspace> workspace;
    std::unique_ptr<IdleSource> idle;
    QString description;
    // What the user should know about what this backend cannot see.
    QStringList notes;
};

// Picks the backend from what the session offers, trying each kind of desktop in a fixed
// order: GNOME Shell on Wayland, a wlroots compositor, KWin on Wayland, then an X11
// display. Null, with every backend's
// reason for declining in *error, when none can follow this session.
std::unique_ptr<DesktopBackend> chooseDesktopBackend(AppIdentityResolver& resolver,
                                                     const Clock& clock, QString* error);
