#include "StoredDaySummaries.h"

#include "DayKeys.h"
#include "LoadMetrics.h"

#include "model/CheckedMath.h"
#include "model/SessionCodec.h"

#include <QTimeZone>

namespace {

std::optional<StoredDaySummary> decodeSummary(const QByteArray& json) {
    const std::optional<QList<ActivitySession>> sessions = SessionCodec::decodeDay(json);
    if (!sessions)
        return std::nullopt;
    StoredDaySummary summary;
    for (const ActivitySession& s : *sessions) {
        const qint64 w = s.weightedTokens();
        const int hour = LoadMetrics::localHour(s.startTime);
        summary.grossTokens = checkedAdd(summary.grossTokens, w);
        summary.hourTokens[hour] = checkedAdd(summary.hourTokens[hour], w);
        summary.hourHasSessions[hour] = true;
    }
    return summary;
}

} // namespace

StoredDaySummaries::StoredDaySummaries(const Defaults& defaults)
    : m_defaults(defaults) {}

std::optional<StoredDaySummary> StoredDaySummaries::summary(const QString& day) {
    const QString key = DayKeys::sessions(day);
    const quint64 revision = m_defaults.revision(key);

    QMutexLocker lock(&m_mutex);
    if (revision == 0) {
        m_entries.remove(day);
        return std::nullopt;
    }
    Entry& entry = m_entries[day];
    entry.used = true;
    if (entry.revision == revision)
        return entry.summary;

    lock.unlock();
    const std::optional<QByteArray> data = m_defaults.data(key);
    std::optional<StoredDaySummary> decoded = data ? decodeSummary(*data) : std::nullopt;
    lock.relock();

    Entry& fresh = m_entries[day];
    fresh.revision = revision;
    fresh.summary = decoded;
    fresh.used = true;
    ++m_decodeCount;
    return decoded;
}

void StoredDaySummaries::beginPass() {
    const QByteArray zone = QTimeZone::systemTimeZoneId();
    QMutexLocker lock(&m_mutex);
    if (zone != m_zoneId) {
        m_entries.clear(); // hour sums are local hours: a new zone moves them
        m_zoneId = zone;
    }
    for (auto it = m_entries.begin(); it != m_entries.end();) {
        if (!it->used) {
            it = m_entries.erase(it);
        } else {
            it->used = false;
            ++it;
        }
    }
}

qint64 StoredDaySummaries::decodeCount() const {
    QMutexLocker lock(&m_mutex);
    return m_decodeCount;
}
