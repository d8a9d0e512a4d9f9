#pragma once

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "platform/NotificationSink.h"

#include <QDateTime>
#include <QObject>

#include <functional>
#include <optional>

class DayStore;

// The three user notifications: the daily threshold alert (once per local day), the
// high-temperature alert (after a sustained stretch, at most every 30 minutes) and the
// end-of-day digest (held by the sink until the configured time of day).
//
// Lives on the main thread. Its only state besides two in-memory dates is two markers in
// the settings database ("mindmeter.notif.*"); every setting is read afresh on each call.
class NotificationManager : public QObject {
    Q_OBJECT
public:
    // The fixed pause between two high-temperature alerts; not a setting.
    static constexpr qint64 highTempCooldownSeconds = 1800;

    inline static const QString thresholdIdentifier = QStringLiteral("threshold");

    NotificationManager(NotificationSink& sink, Defaults& defaults, const Clock& clock,
                        QObject* parent = nullptr);

    // Listens to the store: the threshold check after every recorded session, the digest after
    // every history computation (which the store announces from its worker thread).
    void attach(DayStore& store);

    // Asks the sink for permission to alert with sound; completion gets the answer later, on
    // this object's thread.
    void requestPermission(std::function<void(bool granted)> completion);

    // Today's weighted total, after sessions were recorded.
    void checkThreshold(qint64 totalWeighted);
    // The current temperature (0 to 1), on every tick of the context engine.
    void checkTemperature(double temperature);
    // Replaces today's pending digest with one for this total; when the digest is switched
    // off, removes it. May be called from any thread; the work is done on this object's.
    void scheduleEndOfDayDigest(qint64 totalWeighted);
    void cancelEndOfDayDigest();

    // The digest's one-line verdict for a share of the daily budget in whole percent.
    static QString digestVerdict(qint64 percentOfBaseline);
    // "eod-" and the start of the local day of `now` as seconds since 1970 ("eod-1731628800.0").
    static QString digestIdentifier(const QDateTime& now);

    bool thresholdFiredToday() const;
    std::optional<QDateTime> highTempStart() const { return m_highTempStart; }

private:
    void resetDailyFlagsIfNeeded();
    QDateTime startOfToday() const;
    void post(const QString& identifier, const QString& title, const QString& body,
              std::optional<CalendarTrigger> trigger = std::nullopt);

    NotificationSink& m_sink;
    Defaults& m_defaults;
    const Clock& m_clock;
    // When the current unbroken stretch of high temperature began.
    std::optional<QDateTime> m_highTempStart;
    // The local day whose flags were last reset.
    QDateTime m_lastResetDay;
};
