#include "NotificationManager.h"

#include "model/AppPreferences.h"
#include "model/CheckedMath.h"
#include "model/Format.h"
#include "store/DayKeys.h"
#include "store/DayStore.h"

#include <QPointer>
#include <QThread>

#include <algorithm>
#include <cmath>

namespace {

double secondsSince1970(const QDateTime& t) {
    return double(t.toMSecsSinceEpoch()) / 1000.0;
}

// The shortest decimal text that reads back as the same double; a whole number keeps a
// trailing ".0" so the digest identifier has one form whatever the day.
QString shortestDouble(double v) {
    if (std::isfinite(v) && v == std::trunc(v) && std::fabs(v) < 1e16)
        return QString::number(qint64(v)) + QStringLiteral(".0");
    return QString::number(v, 'g', QLocale::FloatingPointShortest);
}

} // namespace

NotificationManager::NotificationManager(NotificationSink& sink, Defaults& defaults,
                                         const Clock& clock, QObject* parent)
    : QObject(parent)
    , m_sink(sink)
    , m_defaults(defaults)
    , m_clock(clock)
    , m_lastResetDay(startOfToday()) {}

void NotificationManager::attach(DayStore& store) {
    connect(&store, &DayStore::thresholdCheckRequested, this, &NotificationManager::checkThreshold);
    // Emitted on the store's worker thread: the connection queues it to this thread.
    connect(&store, &DayStore::endOfDayDigestRequested, this,
            &NotificationManager::scheduleEndOfDayDigest);
}

QDateTime NotificationManager::startOfToday() const {
    return m_clock.now().toLocalTime().date().startOfDay();
}

void NotificationManager::requestPermission(std::function<void(bool)> completion) {
    QPointer<NotificationManager> guard(this);
    m_sink.requestAuthorization([guard, completion = std::move(completion)](bool granted) {
        if (!guard)
            return;
        // Always answered later, never inside the call.
        QMetaObject::invokeMethod(
            guard, [completion, granted] { completion(granted); }, Qt::QueuedConnection);
    });
}

void NotificationManager::post(const QString& identifier, const QString& title, const QString& body,
                               std::optional<CalendarTrigger> trigger) {
    m_sink.add(NotificationRequest{identifier, title, body, true, trigger});
}

// --- Daily flags -------------------------------------------------------------------------

bool NotificationManager::thresholdFiredToday() const {
    const std::optional<QString> stored =
        m_defaults.string(AppPreferences::notifThresholdFiredDate);
    return stored && *stored == DayKeys::dayText(m_clock.now());
}

void NotificationManager::resetDailyFlagsIfNeeded() {
    const QDateTime today = startOfToday();
    if (today <= m_lastResetDay)
        return;
    m_lastResetDay = today;
    m_defaults.remove(AppPreferences::notifHighTempFiredTime);
    m_highTempStart.reset();
}

// --- Threshold ---------------------------------------------------------------------------

void NotificationManager::checkThreshold(qint64 totalWeighted) {
    resetDailyFlagsIfNeeded();
    if (thresholdFiredToday())
        return;
    if (!AppPreferences::proAlertIsEnabled(m_defaults))
        return;
    const qint64 percent = AppPreferences::alertThreshold(m_defaults);
    // Compared as a double: both settings can hold any positive 64-bit value, and a
    // threshold beyond 64 bits is simply never reached.
    const double threshold =
        std::trunc(double(percent) * double(AppPreferences::dailyBaseline(m_defaults)) / 100.0);
    if (threshold > double(totalWeighted))
        return;
    // The marker is the local day, so it expires by itself at midnight.
    m_defaults.setString(AppPreferences::notifThresholdFiredDate, DayKeys::dayText(m_clock.now()));
    post(thresholdIdentifier, QStringLiteral("Cognitive load at %1%").arg(percent),
         QStringLiteral("You've used %1 tokens today. Consider a short break before pushing "
                        "further.")
             .arg(formatK(totalWeighted)));
}

// --- Temperature -------------------------------------------------------------------------

void NotificationManager::checkTemperature(double temperature) {
    if (!AppPreferences::proTempAlertIsEnabled(m_defaults)) {
        m_highTempStart.reset();
        return;
    }
    resetDailyFlagsIfNeeded();
    const qint64 thresholdPercent = AppPreferences::tempAlertThreshold(m_defaults);
    const qint64 minutes = AppPreferences::tempAlertMinutes(m_defaults);
    const qint64 requiredSeconds = checkedMultiply(minutes, 60);
    // High means strictly above the threshold; NaN is never high.
    if (!(temperature > double(thresholdPercent) / 100.0)) {
        m_highTempStart.reset();
        return;
    }
    const QDateTime now = m_clock.now();
    if (!m_highTempStart)
        m_highTempStart = now;
    if (secondsSince1970(now) - secondsSince1970(*m_highTempStart) < double(requiredSeconds))
        return;
    const double lastFired = m_defaults.real(AppPreferences::notifHighTempFiredTime);
    if (lastFired > 0 && secondsSince1970(now) - lastFired < double(highTempCooldownSeconds))
        return;
    m_defaults.setReal(AppPreferences::notifHighTempFiredTime, secondsSince1970(now));
    // The stretch stays open: while the temperature stays high the alert repeats after each
    // cooldown. Each alert has its own identifier, so each is a separate entry.
    post(QStringLiteral("high-temp-%1").arg(qint64(secondsSince1970(now))),
         QStringLiteral("High cognitive flux"),
         QStringLiteral("Your work has been highly varied for %1+ minutes. A short break helps "
                        "consolidate learning.")
             .arg(minutes));
}

// --- End-of-day digest -------------------------------------------------------------------

QString NotificationManager::digestVerdict(qint64 percent) {
    if (percent < 40)
        return QStringLiteral(
            "Light day \u2014 plenty of cognitive capacity to spare. Well rested!");
    if (percent < 70)
        return QStringLiteral("Balanced day \u2014 good mix of depth and breadth.");
    if (percent < 90)
        return QStringLiteral("Heavy day \u2014 you pushed your context window hard today.");
    return QStringLiteral("Overloaded day \u2014 make sure to rest and recover tonight.");
}

QString NotificationManager::digestIdentifier(const QDateTime& now) {
    return QStringLiteral("eod-") +
           shortestDouble(secondsSince1970(now.toLocalTime().date().startOfDay()));
}

void NotificationManager::scheduleEndOfDayDigest(qint64 totalWeighted) {
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(
            this, [this, totalWeighted] { scheduleEndOfDayDigest(totalWeighted); },
            Qt::QueuedConnection);
        return;
    }
    if (!AppPreferences::proEndOfDayIsEnabled(m_defaults)) {
        cancelEndOfDayDigest();
        return;
    }
    const qint64 secs = checkedTruncate(AppPreferences::endOfDayTimeSeconds(m_defaults));
    const qint64 hour = secs / 3600;
    const qint64 minute = (secs - hour * 3600) / 60;
    const QDateTime now = m_clock.now().toLocalTime();
    const QDate today = now.date();
    // A time of day past 23:59 names no moment of today: nothing is scheduled.
    const QTime time(int(std::min<qint64>(hour, 24)), int(minute));
    if (!time.isValid())
        return;
    const QDateTime fireDate(today, time);
    if (!fireDate.isValid() || fireDate <= now)
        return; // today's digest time has passed; a later call tomorrow schedules again

    const qint64 baseline = AppPreferences::dailyBaseline(m_defaults);
    // Capped before the conversion: with a budget of 1 a large day is far past 100 %, and
    // the verdict is the same above 90 %.
    const qint64 percent =
        checkedTruncate(std::min(double(totalWeighted) / double(baseline) * 100.0, 1e6));
    const QString identifier = digestIdentifier(now);
    m_sink.removePending({identifier});
    post(identifier, QStringLiteral("Today: %1 tokens").arg(formatK(totalWeighted)),
         digestVerdict(percent),
         CalendarTrigger{today.year(), today.month(), today.day(), int(hour), int(minute)});
}

void NotificationManager::cancelEndOfDayDigest() {
    m_sink.removePending({digestIdentifier(m_clock.now())});
}
