#include "WlrToplevelWorkspace.h"

#include "LogindWakeWatcher.h"
#include "WaylandConnection.h"

#include "wlr-foreign-toplevel-management-unstable-v1-client-protocol.h"

#include <wayland-client.h>

WlrToplevelWorkspace::WlrToplevelWorkspace(std::shared_ptr<WaylandConnection> connection,
                                           zwlr_foreign_toplevel_manager_v1* manager,
                                           AppIdentityResolver& resolver)
    : m_connection(std::move(connection))
    , m_manager(manager)
    , m_resolver(resolver) {
    static const zwlr_foreign_toplevel_manager_v1_listener listener = {
        &WlrToplevelWorkspace::onToplevel, &WlrToplevelWorkspace::onFinished};
    zwlr_foreign_toplevel_manager_v1_add_listener(manager, &listener, this);
    // The windows already open, with their states, before anyone asks.
    wl_display_roundtrip(m_connection->display());

    auto* wake = new LogindWakeWatcher(this);
    connect(wake, &LogindWakeWatcher::didWake, this, &Workspace::didWake);
    // Whatever comes forward after a stretch with nothing in front is a new stay.
    connect(this, &Workspace::nothingInFront, this, [this] { m_lastActivated.reset(); });
}

WlrToplevelWorkspace::~WlrToplevelWorkspace() {
    for (Toplevel* t : std::as_const(m_toplevels)) {
        zwlr_foreign_toplevel_handle_v1_destroy(t->handle);
        delete t;
    }
    if (m_manager) {
        // Its "finished" will not be read: the proxy goes now.
        zwlr_foreign_toplevel_manager_v1_stop(m_manager);
        zwlr_foreign_toplevel_manager_v1_destroy(m_manager);
    }
    m_connection->flush();
}

std::unique_ptr<WlrToplevelWorkspace>
WlrToplevelWorkspace::open(std::shared_ptr<WaylandConnection> connection,
                           AppIdentityResolver& resolver, QString* error) {
    auto* manager = static_cast<zwlr_foreign_toplevel_manager_v1*>(
        connection->bind(&zwlr_foreign_toplevel_manager_v1_interface, 3));
    if (!manager) {
        if (error)
            *error = QStringLiteral("the compositor offers no zwlr_foreign_toplevel_manager_v1");
        return nullptr;
    }
    return std::unique_ptr<WlrToplevelWorkspace>(
        new WlrToplevelWorkspace(std::move(connection), manager, resolver));
}

void WlrToplevelWorkspace::onToplevel(void* data, zwlr_foreign_toplevel_manager_v1*,
                                      zwlr_foreign_toplevel_handle_v1* handle) {
    auto* self = static_cast<WlrToplevelWorkspace*>(data);
    auto* toplevel = new Toplevel;
    toplevel->handle = handle;
    self->m_toplevels.append(toplevel);

    // Each handle's events come with the workspace; the handle finds its record.
    static const zwlr_foreign_toplevel_handle_v1_listener listener = {
        // title
        [](void*, zwlr_foreign_toplevel_handle_v1*, const char*) {},
        // app_id
        [](void* d, zwlr_foreign_toplevel_handle_v1* h, const char* appId) {
            if (Toplevel* t = static_cast<WlrToplevelWorkspace*>(d)->find(h))
                t->pendingAppId = QString::fromUtf8(appId);
        },
        // output_enter, output_leave
        [](void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {},
        [](void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {},
        // state: an array of uint32 state values
        [](void* d, zwlr_foreign_toplevel_handle_v1* h, wl_array* states) {
            bool activated = false;
            const auto* values = static_cast<const uint32_t*>(states->data);
            for (size_t i = 0; i < states->size / sizeof(uint32_t); ++i)
                activated |= values[i] == ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED;
            if (Toplevel* t = static_cast<WlrToplevelWorkspace*>(d)->find(h))
                t->pendingActivated = activated;
        },
        // done
        [](void* d, zwlr_foreign_toplevel_handle_v1* h) {
            auto* w = static_cast<WlrToplevelWorkspace*>(d);
            if (Toplevel* t = w->find(h))
                w->toplevelDone(t);
        },
        // closed
        [](void* d, zwlr_foreign_toplevel_handle_v1* h) {
            auto* w = static_cast<WlrToplevelWorkspace*>(d);
            if (Toplevel* t = w->find(h))
                w->toplevelClosed(t);
        },
        // parent
        [](void*, zwlr_foreign_toplevel_handle_v1*, zwlr_foreign_toplevel_handle_v1*) {},
    };
    zwlr_foreign_toplevel_handle_v1_add_listener(handle, &listener, self);
}

void WlrToplevelWorkspace::onFinished(void* data, zwlr_foreign_toplevel_manager_v1*) {
    auto* self = static_cast<WlrToplevelWorkspace*>(data);
    // The compositor destroyed the manager; its handles keep reporting until closed.
    zwlr_foreign_toplevel_manager_v1_destroy(self->m_manager);
    self->m_manager = nullptr;
}

WlrToplevelWorkspace::Toplevel*
WlrToplevelWorkspace::find(zwlr_foreign_toplevel_handle_v1* handle) {
    for (Toplevel* t : std::as_const(m_toplevels))
        if (t->handle == handle)
            return t;
    return nullptr;
}

void WlrToplevelWorkspace::toplevelDone(Toplevel* toplevel) {
    const bool cameForward = toplevel->pendingActivated && !toplevel->activated;
    const bool wentBack = !toplevel->pendingActivated && toplevel->activated;
    if (toplevel->app.bundleID.isEmpty() || toplevel->pendingAppId != toplevel->appId) {
        toplevel->appId = toplevel->pendingAppId;
        toplevel->app = m_resolver.resolve(WindowFacts::fromAppId(toplevel->appId));
    }
    toplevel->activated = toplevel->pendingActivated;
    if (wentBack && !frontmostApplication())
        noWindowInFront();
    if (!cameForward)
        return;
    const RunningApp& app = toplevel->app;
    // Moving between two windows of one application is not an activation.
    if (m_lastActivated && m_lastActivated->bundleID == app.bundleID)
        return;
    m_lastActivated = app;
    emit applicationActivated(app);
}

void WlrToplevelWorkspace::toplevelClosed(Toplevel* toplevel) {
    const bool wasInFront = toplevel->activated;
    m_toplevels.removeOne(toplevel);
    zwlr_foreign_toplevel_handle_v1_destroy(toplevel->handle);
    delete toplevel;
    if (wasInFront && !frontmostApplication())
        noWindowInFront();
}

std::optional<RunningApp> WlrToplevelWorkspace::frontmostApplication() const {
    for (const Toplevel* t : m_toplevels)
        if (t->activated)
            return t->app;
    return std::nullopt;
}

QList<RunningApp> WlrToplevelWorkspace::runningApplications() const {
    QList<RunningApp> apps;
    for (const Toplevel* t : m_toplevels) {
        const RunningApp& app = t->app;
        if (!apps.contains(app))
            apps.append(app);
    }
    return apps;
}
