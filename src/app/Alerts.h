#pragma once

#include <memory>

class Clock;
class DBusNotificationSink;
class DayStore;
class Defaults;
class NotificationManager;
class NotificationSink;
class SessionContextEngine;

// Desktop notifications for a running tracker: the threshold and temperature alerts and the
// end-of-day digest, shown through the desktop's notification service.
class Alerts {
public:
    Alerts(DayStore& store, SessionContextEngine& context, Defaults& defaults, const Clock& clock);
    ~Alerts();

    NotificationManager& manager() const { return *m_manager; }
    NotificationSink& sink() const;

private:
    std::unique_ptr<DBusNotificationSink> m_sink;
    std::unique_ptr<NotificationManager> m_manager;
};
