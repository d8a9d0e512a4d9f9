#include "LoadMetrics.h"

#include "model/CheckedMath.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace LoadMetrics {

QString hourLabel(int hour) {
    if (hour == 0)
        return QStringLiteral("12 AM");
    if (hour == 12)
        return QStringLiteral("12 PM");
    if (hour < 12)
        return QString::number(hour) + QStringLiteral(" AM");
    return QString::number(hour - 12) + QStringLiteral(" PM");
}

double contextSaturation(qint64 totalWeighted, qint64 baseline) {
    return std::min(double(totalWeighted) / double(baseline), 1.0);
}

double temperature(const QMap<TokenType, qint64>& tokensByType) {
    qint64 total = 0;
    for (qint64 v : tokensByType)
        total = checkedAdd(total, v);
    if (total < 1)
        return 0.0;
    double entropy = 0.0;
    for (TokenType type : TokenTypes::allCases) {
        const double p = double(tokensByType.value(type, 0)) / double(total);
        if (p > 0)
            entropy += -p * std::log2(p);
    }
    return std::clamp(entropy / std::log2(4.0), 0.0, 1.0);
}

qint64 velocity(const QList<ActivitySession>& sessions, const QDateTime& now) {
    const Timestamp cutoff = Timestamp::fromDateTime(now).addSeconds(-3600);
    qint64 sum = 0;
    for (const ActivitySession& s : sessions)
        if (s.startTime >= cutoff)
            sum = checkedAdd(sum, s.weightedTokens());
    return sum;
}

int localHour(const Timestamp& t) {
    return t.toDateTime().toLocalTime().time().hour();
}

QList<HourBucket> hourlyBuckets(const QList<ActivitySession>& sessions, const QDateTime& now,
                                int last) {
    if (last < 0)
        qFatal("hourlyBuckets: negative hour count %d", last);
    QList<HourBucket> buckets;
    buckets.reserve(last);
    std::array<qint64, 24> sums{};
    std::array<bool, 24> inWindow{};
    for (int k = -(last - 1); k <= 0; ++k) {
        const int hour = now.addSecs(qint64(k) * 3600).toLocalTime().time().hour();
        buckets.append({hour, hourLabel(hour), 0});
        inWindow[hour] = true;
    }
    for (const ActivitySession& s : sessions) {
        const int hour = localHour(s.startTime);
        if (inWindow[hour])
            sums[hour] = checkedAdd(sums[hour], s.weightedTokens());
    }
    // Sums are kept by clock hour: on a fall-back night the repeated hour appears twice in
    // the window and both entries show that hour's sum.
    for (HourBucket& b : buckets)
        b.tokens = sums[b.hour];
    return buckets;
}

} // namespace LoadMetrics
