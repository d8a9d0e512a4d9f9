#pragma once

#include "platform/Defaults.h"

#include <QHash>
#include <QMutex>
#include <QString>

#include <array>
#include <optional>

// What the history needs from one stored day: its gross weighted tokens and the weighted
// tokens started in each local clock hour.
struct StoredDaySummary {
    qint64 grossTokens = 0;
    std::array<qint64, 24> hourTokens{};
    std::array<bool, 24> hourHasSessions{};
};

// Decoded summaries of stored days, kept while the stored value is unchanged. Past days do
// not change, so a history refresh decodes only what was written since the last one
// (normally just today). An entry is checked against the value's revision and the local
// time zone, so a day rewritten by another process or a zone change is decoded again.
class StoredDaySummaries {
public:
    explicit StoredDaySummaries(const Defaults& defaults);

    // Starts one history pass: forgets the days the previous pass did not ask for, which
    // keeps memory bounded, and everything if the local time zone has changed.
    void beginPass();

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

    const Defaults& m_defaults;
    mutable QMutex m_mutex;
    QHash<QString, Entry> m_entries;
    QByteArray m_zoneId;
    qint64 m_decodeCount = 0;
};
