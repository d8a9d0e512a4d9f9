#pragma once

#include "platform/IdleSource.h"

#include <QString>

#include <memory>
#include <optional>

class Clock;
class WaylandConnection;
struct ext_idle_notifier_v1;
struct ext_idle_notification_v1;
struct org_kde_kwin_idle;
struct org_kde_kwin_idle_timeout;
struct wl_seat;

// Seconds since the last input on a Wayland compositor, which tells no number, only when
// the seat has been without input for a set time ("idled") and when input came back
// ("resumed"). One notification is registered with a short threshold: at "idled" the last
// input was exactly that threshold ago, so from then on the seconds are counted from it.
// Before "idled" the answer is 0, though up to the threshold may have passed: every rule
// that compares against the idle timeout (a minute at the least) decides the same either
// way. The process is woken only at those two events.
//
// ext_idle_notifier_v1 where the compositor offers it, else KDE's org_kde_kwin_idle.
class WaylandIdleSource final : public IdleSource {
public:
    // Seconds of no input after which the compositor says "idled".
    static constexpr int thresholdMs = 10000;

    ~WaylandIdleSource() override;

    // Null, with the reason in *error, when the compositor offers neither protocol or no seat.
    static std::unique_ptr<WaylandIdleSource> open(std::shared_ptr<WaylandConnection> connection,
                                                   const Clock& clock, QString* error);

    double secondsSinceLastInput() const override;

    // The protocol in use, by its interface name.
    QString protocol() const;

private:
    WaylandIdleSource(std::shared_ptr<WaylandConnection> connection, const Clock& clock);
    void idled();
    void resumed();

    std::shared_ptr<WaylandConnection> m_connection;
    const Clock& m_clock;
    wl_seat* m_seat = nullptr;
    ext_idle_notifier_v1* m_notifier = nullptr;
    ext_idle_notification_v1* m_notification = nullptr;
    org_kde_kwin_idle* m_kdeIdle = nullptr;
    org_kde_kwin_idle_timeout* m_kdeTimeout = nullptr;
    // On the clock's elapsed scale: when the last input happened, known once idle.
    std::optional<qint64> m_lastInputMs;
};
