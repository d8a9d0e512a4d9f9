#include "WaylandConnection.h"

#include <QLoggingCategory>
#include <QSocketNotifier>

#include <wayland-client.h>

#include <cerrno>
#include <cstring>

Q_LOGGING_CATEGORY(lcWayland, "mindmeter.wayland")

WaylandConnection::WaylandConnection(wl_display* display)
    : m_display(display) {
    static const wl_registry_listener listener = {&WaylandConnection::onGlobal,
                                                  &WaylandConnection::onGlobalRemove};
    m_registry = wl_display_get_registry(display);
    wl_registry_add_listener(m_registry, &listener, this);
    // The one blocking exchange: learn the globals before anyone binds one.
    wl_display_roundtrip(display);

    m_notifier =
        std::make_unique<QSocketNotifier>(wl_display_get_fd(display), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &WaylandConnection::readEvents);
}

WaylandConnection::~WaylandConnection() {
    m_notifier.reset();
    wl_registry_destroy(m_registry);
    wl_display_disconnect(m_display);
}

std::unique_ptr<WaylandConnection> WaylandConnection::open(QString* error) {
    const QString name = qEnvironmentVariable("WAYLAND_DISPLAY");
    if (name.isEmpty()) {
        if (error)
            *error = QStringLiteral("no Wayland display: WAYLAND_DISPLAY is not set");
        return nullptr;
    }
    wl_display* display = wl_display_connect(nullptr);
    if (!display) {
        if (error)
            *error = QStringLiteral("cannot connect to the Wayland display %1 (%2)")
                         .arg(name, QString::fromLocal8Bit(std::strerror(errno)));
        return nullptr;
    }
    return std::unique_ptr<WaylandConnection>(new WaylandConnection(display));
}

void WaylandConnection::onGlobal(void* data, wl_registry*, quint32 name, const char* interface,
                                 quint32 version) {
    auto* self = static_cast<WaylandConnection*>(data);
    // The first of several (wl_seat, wl_output) is the one used.
    if (!self->m_globals.contains(interface))
        self->m_globals.insert(interface, {name, version});
}

void WaylandConnection::onGlobalRemove(void* data, wl_registry*, quint32 name) {
    auto* self = static_cast<WaylandConnection*>(data);
    for (auto it = self->m_globals.begin(); it != self->m_globals.end(); ++it)
        if (it->name == name) {
            self->m_globals.erase(it);
            return;
        }
}

quint32 WaylandConnection::offered(const char* interface) const {
    return m_globals.value(interface).version;
}

void* WaylandConnection::bind(const wl_interface* interface, quint32 maxVersion) const {
    const auto it = m_globals.constFind(interface->name);
    if (it == m_globals.constEnd())
        return nullptr;
    const quint32 version = qMin(qMin(it->version, maxVersion), quint32(interface->version));
    return wl_registry_bind(m_registry, it->name, interface, version);
}

void WaylandConnection::flush() const {
    wl_display_flush(m_display);
}

bool WaylandConnection::failed() {
    if (m_lost)
        return true;
    if (const int code = wl_display_get_error(m_display)) {
        m_lost = true;
        m_notifier->setEnabled(false);
        qCWarning(lcWayland) << "the connection to the Wayland compositor was lost:"
                             << std::strerror(code);
        emit lost();
        return true;
    }
    return false;
}

void WaylandConnection::readEvents() {
    if (failed())
        return;
    // Events already queued (by the start-up exchange) are handled before reading more.
    while (wl_display_prepare_read(m_display) != 0)
        wl_display_dispatch_pending(m_display);
    if (wl_display_read_events(m_display) < 0 && errno != EAGAIN) {
        failed();
        return;
    }
    wl_display_dispatch_pending(m_display);
    wl_display_flush(m_display);
    failed();
}
