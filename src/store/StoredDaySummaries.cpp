#include "StoredDaySummaries.h"

#include "DayKeys.h"

#include "model/SessionCodec.h"

#include <QTimeZone>

namespace {

// Kept for a day whose sessions do not decode, so that it is not decoded again either.
const QByteArray undecodable = QByteArrayLiteral("undecodable");

} // namespace

StoredDaySummaries::StoredDaySummaries(const Defaults& defaults)
    : m_defaults(defaults)
    , m_kept(dynamic_cast<const DerivedValues*>(&defaults))
    , m_zoneId(QTimeZone::systemTimeZoneId()) {}

StoredDaySummaries::~StoredDaySummaries() {
    endPass();
}

std::pair<std::optional<StoredDaySummary>, std::optional<QByteArray>>
StoredDaySummaries::take(const QString& key, quint64 revision, const QByteArray& zone) {
    if (const std::optional<QByteArray> kept =
            m_kept ? m_kept->derivedData(key, revision) : std::nullopt) {
        if (*kept == undecodable)
            return {std::nullopt, std::nullopt};
        if (std::optional<StoredDaySummary> summary = StoredDaySummary::decode(*kept, zone))
            return {std::move(summary), std::nullopt};
        // Another zone, another layout or damaged: taken again below and kept anew.
    }
    const std::optional<QByteArray> data = m_defaults.data(key);
    const std::optional<QList<ActivitySession>> sessions =
        data ? SessionCodec::decodeDay(*data) : std::nullopt;
    {
        QMutexLocker lock(&m_mutex);
        ++m_decodeCount;
    }
    if (!data) // gone since its revision was read
        return {std::nullopt, std::nullopt};
    if (!sessions)
        return {std::nullopt, undecodable};
    StoredDaySummary summary = StoredDaySummary::of(*sessions);
    QByteArray bytes = summary.encode(zone);
    return {std::move(summary), std::move(bytes)};
}

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
    const QByteArray zone = m_zoneId;
    // Today changes with every session recorded: only days before it are kept in the store.
    const bool past = !m_today.isEmpty() && day < m_today;

    lock.unlock();
    auto [summary, bytes] = take(key, revision, zone);
    lock.relock();

    Entry& fresh = m_entries[day];
    fresh.revision = revision;
    fresh.summary = summary;
    fresh.used = true;
    if (bytes && past)
        m_toKeep.append({key, revision, std::move(*bytes)});
    return summary;
}

void StoredDaySummaries::beginPass(const QDate& today) {
    const QByteArray zone = QTimeZone::systemTimeZoneId();
    QMutexLocker lock(&m_mutex);
    m_today = DayKeys::dayText(today);
    if (zone != m_zoneId) {
        m_entries.clear(); // hour sums are local hours: a new zone moves them
        m_toKeep.clear();
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

void StoredDaySummaries::endPass() {
    QList<DerivedValues::Item> toKeep;
    {
        QMutexLocker lock(&m_mutex);
        toKeep.swap(m_toKeep);
    }
    if (m_kept && !toKeep.isEmpty())
        m_kept->keepDerivedData(toKeep);
}

qint64 StoredDaySummaries::decodeCount() const {
    QMutexLocker lock(&m_mutex);
    return m_decodeCount;
}
