#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// A local calendar moment to the minute. A request with a trigger is shown when the local
// time reaches it; one whose minute has already passed on the same day is shown at once.
struct CalendarTrigger {
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    bool operator==(const CalendarTrigger&) const = default;
};

struct NotificationRequest {
    // Names the notification: a later request with the same identifier replaces it, both
    // while it waits for its trigger and once it is on screen.
    QString identifier;
    QString title;
    QString body;
    // The default notification sound.
    bool sound = true;
    // None: show at once.
    std::optional<CalendarTrigger> trigger;
    bool operator==(const NotificationRequest&) const = default;
};

// The desktop's notification service. Used on the thread the sink lives on; failures are
// silent (a refused or undeliverable notification is dropped).
class NotificationSink {
public:
    virtual ~NotificationSink() = default;

    // Asks to show alerts with sound; the answer comes later, on the sink's thread.
    virtual void requestAuthorization(std::function<void(bool granted)> completion) = 0;
    // Shows the request now, or holds it until its trigger.
    virtual void add(const NotificationRequest& request) = 0;
    // Drops held requests with these identifiers; notifications already shown stay.
    virtual void removePending(const QStringList& identifiers) = 0;
};
