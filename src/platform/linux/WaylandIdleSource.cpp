#include "WaylandIdleSource.h"

#include "WaylandConnection.h"

#include "platform/Clock.h"

#include "ext-idle-notify-v1-client-protocol.h"
#include "idle-client-protocol.h"

#include <wayland-client.h>

WaylandIdleSource::WaylandIdleSource(std::shared_ptr<WaylandConnection> connection,
                                     const Clock& clock)
    : m_connection(std::move(connection))
    , m_clock(clock) {}

WaylandIdleSource::~WaylandIdleSource() {
    if (m_notification)
        ext_idle_notification_v1_destroy(m_notification);
    if (m_notifier)
        ext_idle_notifier_v1_destroy(m_notifier);
    if (m_kdeTimeout)
        org_kde_kwin_idle_timeout_release(m_kdeTimeout);
    if (m_kdeIdle)
        org_kde_kwin_idle_destroy(m_kdeIdle);
    if (m_seat)
        wl_seat_destroy(m_seat);
    m_connection->flush();
}

std::unique_ptr<WaylandIdleSource>
WaylandIdleSource::open(std::shared_ptr<WaylandConnection> connection, const Clock& clock,
                        QString* error) {
    const bool ext = connection->offered(ext_idle_notifier_v1_interface.name) > 0;
    if (!ext && connection->offered(org_kde_kwin_idle_interface.name) == 0) {
        if (error)
            *error = QStringLiteral(
                "the compositor offers no idle notification (ext_idle_notifier_v1 or "
                "org_kde_kwin_idle)");
        return nullptr;
    }
    auto* seat = static_cast<wl_seat*>(connection->bind(&wl_seat_interface, 1));
    if (!seat) {
        if (error)
            *error = QStringLiteral("the compositor offers no seat");
        return nullptr;
    }
    std::unique_ptr<WaylandIdleSource> source(new WaylandIdleSource(connection, clock));
    source->m_seat = seat;
    if (ext) {
        static const ext_idle_notification_v1_listener listener = {
            [](void* d, ext_idle_notification_v1*) { static_cast<WaylandIdleSource*>(d)->idled(); },
            [](void* d, ext_idle_notification_v1*) {
                static_cast<WaylandIdleSource*>(d)->resumed();
            },
        };
        source->m_notifier = static_cast<ext_idle_notifier_v1*>(
            connection->bind(&ext_idle_notifier_v1_interface, 1));
        source->m_notification =
            ext_idle_notifier_v1_get_idle_notification(source->m_notifier, thresholdMs, seat);
        ext_idle_notification_v1_add_listener(source->m_notification, &listener, source.get());
    } else {
        static const org_kde_kwin_idle_timeout_listener listener = {
            [](void* d, org_kde_kwin_idle_timeout*) {
                static_cast<WaylandIdleSource*>(d)->idled();
            },
            [](void* d, org_kde_kwin_idle_timeout*) {
                static_cast<WaylandIdleSource*>(d)->resumed();
            },
        };
        source->m_kdeIdle =
            static_cast<org_kde_kwin_idle*>(connection->bind(&org_kde_kwin_idle_interface, 1));
        source->m_kdeTimeout =
            org_kde_kwin_idle_get_idle_timeout(source->m_kdeIdle, seat, thresholdMs);
        org_kde_kwin_idle_timeout_add_listener(source->m_kdeTimeout, &listener, source.get());
    }
    connection->flush();
    return source;
}

QString WaylandIdleSource::protocol() const {
    return QString::fromLatin1(m_notifier ? ext_idle_notifier_v1_interface.name
                                          : org_kde_kwin_idle_interface.name);
}

void WaylandIdleSource::idled() {
    m_lastInputMs = m_clock.elapsedMs() - thresholdMs;
}

void WaylandIdleSource::resumed() {
    m_lastInputMs.reset();
}

double WaylandIdleSource::secondsSinceLastInput() const {
    // Without a compositor there is no answer: the user counts as present, as on X11.
    if (!m_lastInputMs || m_connection->isLost())
        return 0.0;
    return double(m_clock.elapsedMs() - *m_lastInputMs) / 1000.0;
}
