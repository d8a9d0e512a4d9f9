#pragma once

#include "AppIdentityResolver.h"

#include "platform/Workspace.h"

#include <QList>

#include <memory>

class WaylandConnection;
struct zwlr_foreign_toplevel_manager_v1;
struct zwlr_foreign_toplevel_handle_v1;

// The workspace of a wlroots compositor (sway, Hyprland, river, labwc, Wayfire), read
// through zwlr_foreign_toplevel_manager_v1: every toplevel window with its app_id, and the
// one whose state holds "activated". Changes arrive as events on the compositor connection;
// nothing is polled.
class WlrToplevelWorkspace final : public Workspace {
    Q_OBJECT
public:
    ~WlrToplevelWorkspace() override;

    // Null, with the reason in *error, when the compositor offers no toplevel manager.
    static std::unique_ptr<WlrToplevelWorkspace> open(std::shared_ptr<WaylandConnection> connection,
                                                      AppIdentityResolver& resolver,
                                                      QString* error);

    std::optional<RunningApp> frontmostApplication() const override;
    QList<RunningApp> runningApplications() const override;

private:
    struct Toplevel {
        zwlr_foreign_toplevel_handle_v1* handle = nullptr;
        QString appId;
        RunningApp app; // resolved from appId
        bool activated = false;
        // Changes announced since the last "done", applied together.
        QString pendingAppId;
        bool pendingActivated = false;
    };

    WlrToplevelWorkspace(std::shared_ptr<WaylandConnection> connection,
                         zwlr_foreign_toplevel_manager_v1* manager, AppIdentityResolver& resolver);
    Toplevel* find(zwlr_foreign_toplevel_handle_v1* handle);
    void toplevelDone(Toplevel* toplevel);
    void toplevelClosed(Toplevel* toplevel);

    static void onToplevel(void* data, zwlr_foreign_toplevel_manager_v1*,
                           zwlr_foreign_toplevel_handle_v1* handle);
    static void onFinished(void* data, zwlr_foreign_toplevel_manager_v1*);

    std::shared_ptr<WaylandConnection> m_connection;
    zwlr_foreign_toplevel_manager_v1* m_manager = nullptr;
    AppIdentityResolver& m_resolver;
    // In the order the compositor announced them; owned here.
    QList<Toplevel*> m_toplevels;
    std::optional<RunningApp> m_lastActivated;
};
