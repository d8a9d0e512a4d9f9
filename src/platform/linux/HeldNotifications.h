#pragma once

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/NotificationSink.h"

#include <QList>
#include <QObject>
#include <QTimer>

// Requests with a calendar trigger, held by the app until the local time reaches them.
//
// The desktop's notification service shows notifications only at once, so the app keeps the
// scheduled ones itself. They are stored in the settings database under
// "mindmeter.notif.pendingRequests" after every change, so a pending digest survives a
// restart: at start-up a request whose minute has passed earlier the same day is delivered at
// once, one from an earlier day is dropped.
//
// Time is the injected clock's. The timer never sleeps longer than maxWaitMs before looking
// at the clock again, so a suspended machine or a moved clock is noticed within that time.
class HeldNotifications : public QObject {
    Q_OBJECT
public:
    inline static const QString storageKey = QStringLiteral("mindmeter.notif.pendingRequests");

    HeldNotifications(Defaults& defaults, const Clock& clock, int maxWaitMs = 60000,
                      QObject* parent = nullptr);

    // Holds the request, replacing a held one with the same identifier.
    void hold(const NotificationRequest& request);
    void remove(const QStringList& identifiers);
    const QList<NotificationRequest>& pending() const { return m_pending; }

    // The local moment a trigger names, or an invalid date when it names none.
    static QDateTime fireTime(const CalendarTrigger& trigger);

    static QByteArray encode(const QList<NotificationRequest>& requests);
    // Requests that do not decode are left out.
    static QList<NotificationRequest> decode(const QByteArray& json);

signals:
    // A held request reached its time; it is no longer held.
    void due(const NotificationRequest& request);

private:
    void deliverDue();
    void rearm();
    void persist();

    Defaults& m_defaults;
    const Clock& m_clock;
    int m_maxWaitMs;
    QList<NotificationRequest> m_pending;
    QTimer m_timer;
};
