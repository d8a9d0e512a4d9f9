#pragma once

#include <memory>

class AppIdentityResolver;
class GnomeShellWorkspace;
class IdleSource;
class NotificationSink;
class Workspace;

// True on a Wayland session whose session bus GNOME Shell answers on.
bool isGnomeShellWaylandSession();

// GNOME on Wayland: the front application from Mindmeter's GNOME Shell extension, idle time
// from Mutter. Chosen when the session is Wayland and GNOME Shell and Mutter's idle monitor
// answer on the session bus (what answers decides, not the desktop's name). False, leaving
// both untouched, on any other session.
bool openGnomeShellBackend(AppIdentityResolver& resolver, std::unique_ptr<Workspace>* workspace,
                           std::unique_ptr<IdleSource>* idle);

// Says once in a desktop notification, and again whenever it goes away, that the extension
// does not answer, with the command that turns it on.
void announceMissingGnomeShellExtension(GnomeShellWorkspace& workspace, NotificationSink& sink);
