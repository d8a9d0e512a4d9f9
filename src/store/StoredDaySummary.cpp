#include "StoredDaySummary.h"

#include "LoadMetrics.h"

#include "model/CheckedMath.h"

#include <QDataStream>
#include <QHash>
#include <QIODevice>

#include <algorithm>

namespace {

// Changes whenever the layout below does; older bytes then read as absent and are redone.
constexpr quint32 layoutTag = 0x4d4d5301; // "MMS", layout 1

} // namespace

StoredDaySummary StoredDaySummary::of(const QList<ActivitySession>& sessions) {
    StoredDaySummary summary;
    QHash<QString, qint64> byApp;
    for (const ActivitySession& s : sessions) {
        const qint64 w = s.weightedTokens();
        const int hour = LoadMetrics::localHour(s.startTime);
        summary.grossTokens = checkedAdd(summary.grossTokens, w);
        summary.hourTokens[hour] = checkedAdd(summary.hourTokens[hour], w);
        summary.hourHasSessions[hour] = true;
        qint64& typeSum = summary.typeTokens[size_t(s.tokenType)];
        typeSum = checkedAdd(typeSum, w);
        summary.rawTokens = checkedAdd(summary.rawTokens, s.rawTokens);
        qint64& appSum = byApp[s.appName];
        appSum = checkedAdd(appSum, w);
    }
    summary.sessionCount = sessions.size();
    // The first application met wins a tie, so the sessions are walked again in order.
    for (const ActivitySession& s : sessions)
        if (!summary.topApp || byApp.value(s.appName) > byApp.value(*summary.topApp))
            summary.topApp = s.appName;
    return summary;
}

std::optional<int> StoredDaySummary::busiestHour() const {
    if (sessionCount == 0)
        return std::nullopt;
    return int(std::max_element(hourTokens.begin(), hourTokens.end()) - hourTokens.begin());
}

QByteArray StoredDaySummary::encode(const QByteArray& zoneId) const {
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_4);
    quint32 hoursWithSessions = 0;
    for (int h = 0; h < 24; ++h)
        if (hourHasSessions[h])
            hoursWithSessions |= 1u << h;
    out << layoutTag << zoneId << grossTokens << rawTokens << sessionCount << hoursWithSessions;
    for (qint64 t : hourTokens)
        out << t;
    for (qint64 t : typeTokens)
        out << t;
    out << topApp.has_value() << topApp.value_or(QString());
    return bytes;
}

std::optional<StoredDaySummary> StoredDaySummary::decode(const QByteArray& bytes,
                                                         const QByteArray& zoneId) {
    QDataStream in(bytes);
    in.setVersion(QDataStream::Qt_6_4);
    quint32 tag = 0;
    QByteArray zone;
    in >> tag;
    if (tag != layoutTag)
        return std::nullopt;
    in >> zone;
    if (zone != zoneId)
        return std::nullopt;
    StoredDaySummary s;
    quint32 hoursWithSessions = 0;
    in >> s.grossTokens >> s.rawTokens >> s.sessionCount >> hoursWithSessions;
    for (qint64& t : s.hourTokens)
        in >> t;
    for (qint64& t : s.typeTokens)
        in >> t;
    bool hasTopApp = false;
    QString app;
    in >> hasTopApp >> app;
    if (in.status() != QDataStream::Ok || !in.atEnd() || s.sessionCount < 0 ||
        hoursWithSessions >> 24 != 0 || hasTopApp != (s.sessionCount > 0))
        return std::nullopt;
    for (int h = 0; h < 24; ++h)
        s.hourHasSessions[h] = (hoursWithSessions >> h & 1u) != 0;
    if (hasTopApp)
        s.topApp = app;
    return s;
}
