#include "HeldNotifications.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace {

std::optional<int> intField(const QJsonObject& o, const char* key) {
    const QJsonValue v = o.value(QLatin1String(key));
    if (!v.isDouble())
        return std::nullopt;
    const double d = v.toDouble();
    // Range first: converting a double that does not fit to int is undefined.
    if (!(d >= -100000 && d <= 100000) || d != double(int(d)))
        return std::nullopt;
    return int(d);
}

} // namespace

HeldNotifications::HeldNotifications(Defaults& defaults, const Clock& clock, int maxWaitMs,
                                     QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_clock(clock)
    , m_maxWaitMs(std::max(1, maxWaitMs)) {
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &HeldNotifications::deliverDue);

    const QDate today = m_clock.now().toLocalTime().date();
    const std::optional<QByteArray> stored = m_defaults.data(storageKey);
    const QList<NotificationRequest> loaded =
        stored ? decode(*stored) : QList<NotificationRequest>{};
    for (const NotificationRequest& r : loaded) {
        const QDateTime at = fireTime(*r.trigger);
        // What was due on an earlier day is stale; today's, even if late, is still news.
        if (at.isValid() && at.date() >= today)
            m_pending.append(r);
    }
    // Rewrite what was stored when something in it was stale or unreadable.
    if (stored && (m_pending.isEmpty() || m_pending.size() != loaded.size()))
        persist();
    // Delivered from the event loop, once whoever listens to `due` is connected.
    m_timer.start(0);
}

QDateTime HeldNotifications::fireTime(const CalendarTrigger& t) {
    const QDate date(t.year, t.month, t.day);
    const QTime time(t.hour, t.minute);
    if (!date.isValid() || !time.isValid())
        return {};
    return QDateTime(date, time);
}

void HeldNotifications::hold(const NotificationRequest& request) {
    if (!request.trigger || !fireTime(*request.trigger).isValid())
        return;
    m_pending.removeIf(
        [&](const NotificationRequest& r) { return r.identifier == request.identifier; });
    m_pending.append(request);
    persist();
    rearm();
}

void HeldNotifications::remove(const QStringList& identifiers) {
    const qsizetype removed = m_pending.removeIf(
        [&](const NotificationRequest& r) { return identifiers.contains(r.identifier); });
    if (removed == 0)
        return;
    persist();
    rearm();
}

void HeldNotifications::deliverDue() {
    const QDateTime now = m_clock.now();
    QList<NotificationRequest> ready;
    for (qsizetype i = 0; i < m_pending.size();) {
        if (fireTime(*m_pending[i].trigger) <= now)
            ready.append(m_pending.takeAt(i));
        else
            ++i;
    }
    if (!ready.isEmpty())
        persist();
    for (const NotificationRequest& r : std::as_const(ready))
        emit due(r);
    rearm();
}

void HeldNotifications::rearm() {
    m_timer.stop();
    if (m_pending.isEmpty())
        return;
    const QDateTime now = m_clock.now();
    qint64 wait = m_maxWaitMs;
    for (const NotificationRequest& r : std::as_const(m_pending))
        wait = std::min(wait, std::max<qint64>(0, now.msecsTo(fireTime(*r.trigger))));
    m_timer.start(int(wait));
}

void HeldNotifications::persist() {
    // A failed write keeps the requests in memory; they are written whole on the next change.
    if (m_pending.isEmpty())
        m_defaults.remove(storageKey);
    else
        m_defaults.setData(storageKey, encode(m_pending));
}

QByteArray HeldNotifications::encode(const QList<NotificationRequest>& requests) {
    QJsonArray list;
    for (const NotificationRequest& r : requests) {
        if (!r.trigger)
            continue;
        const CalendarTrigger& t = *r.trigger;
        list.append(QJsonObject{
            {QStringLiteral("identifier"), r.identifier},
            {QStringLiteral("title"), r.title},
            {QStringLiteral("body"), r.body},
            {QStringLiteral("sound"), r.sound},
            {QStringLiteral("trigger"), QJsonObject{{QStringLiteral("year"), t.year},
                                                    {QStringLiteral("month"), t.month},
                                                    {QStringLiteral("day"), t.day},
                                                    {QStringLiteral("hour"), t.hour},
                                                    {QStringLiteral("minute"), t.minute}}}});
    }
    return QJsonDocument(list).toJson(QJsonDocument::Compact);
}

QList<NotificationRequest> HeldNotifications::decode(const QByteArray& json) {
    QList<NotificationRequest> requests;
    const QJsonDocument doc = QJsonDocument::fromJson(json);
    if (!doc.isArray())
        return requests;
    for (const QJsonValue& v : doc.array()) {
        const QJsonObject o = v.toObject();
        const QJsonObject t = o.value(QStringLiteral("trigger")).toObject();
        const auto year = intField(t, "year");
        const auto month = intField(t, "month");
        const auto day = intField(t, "day");
        const auto hour = intField(t, "hour");
        const auto minute = intField(t, "minute");
        if (!o.value(QStringLiteral("identifier")).isString() ||
            !o.value(QStringLiteral("title")).isString() ||
            !o.value(QStringLiteral("body")).isString() || !year || !month || !day || !hour ||
            !minute)
            continue;
        requests.append({o.value(QStringLiteral("identifier")).toString(),
                         o.value(QStringLiteral("title")).toString(),
                         o.value(QStringLiteral("body")).toString(),
                         o.value(QStringLiteral("sound")).toBool(true),
                         CalendarTrigger{*year, *month, *day, *hour, *minute}});
    }
    return requests;
}
