#pragma once

#include "DerivedValues.h"
#include "StoredDaySummary.h"

#include "platform/Defaults.h"

#include <QDate>
#include <QHash>
#include <QMutex>
#include <QString>

#include <optional>

// Summaries of the stored days, each taken once in the life of the day's stored value. A
// summary is kept in memory and, for the days before today, beside the day in the store
// (DerivedValues), tagged with the value's revision and the local time zone: any
// process finds it there and decodes nothing, while a day rewritten (a new revision) or a
// zone change (the hours move) makes it be taken again.
class StoredDaySummaries {
public:
    explicit StoredDaySummaries(const Defaults& defaults);
    // Keeps what the last pass took and has not kept yet.
    ~StoredDaySummaries();

    // Starts one pass as of the local day `today`: forgets the days the previous pass did not
    // ask for, which keeps memory bounded, and everything if the local time zone has changed.
    void beginPass(const QDate& today);
    // Ends it: what was taken for days before today is kept in the store, in one write.
    void endPass();

    // The summary of the day named "yyyy-MM-dd", or nothing when no such day is stored or
    // it does not decode. Thread-safe.
    std::optional<StoredDaySummary> summary(const QString& day);

    // How many days were decoded since construction (for tests and benchmarks).
    qint64 decodeCount() const;

private:
    struct Entry {
        quint64 revision = 0;
        std::optional<StoredDaySummary> summary;
        bool used = false;
    };

    // Kept, or taken from the stored sessions; the second of the pair is the bytes to keep.
    std::pair<std::optional<StoredDaySummary>, std::optional<QByteArray>>
    take(const QString& key, quint64 revision, const QByteArray& zone);

    const Defaults& m_defaults;
    // The store's place for derived bytes, when it has one.
    const DerivedValues* m_kept;
    mutable QMutex m_mutex;
    QHash<QString, Entry> m_entries;
    QList<DerivedValues::Item> m_toKeep;
    QByteArray m_zoneId;
    QString m_today;
    qint64 m_decodeCount = 0;
};
