#pragma once

#include "model/ActivitySession.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <array>
#include <optional>

// What one day contributes to the history and the export, taken from its sessions: the
// gross weighted tokens, their split by type and by local start hour, the raw tokens, the
// session count and the application with the most weighted tokens.
struct StoredDaySummary {
    qint64 grossTokens = 0;
    std::array<qint64, 24> hourTokens{};
    std::array<bool, 24> hourHasSessions{};
    // Weighted tokens per type, indexed by the TokenType's value.
    std::array<qint64, 4> typeTokens{};
    qint64 rawTokens = 0;
    qint64 sessionCount = 0;
    // Among equal totals, the application met first; none for a day without sessions.
    std::optional<QString> topApp;

    static StoredDaySummary of(const QList<ActivitySession>& sessions);

    qint64 tokens(TokenType type) const { return typeTokens[size_t(type)]; }
    // The local hour with the most weighted tokens, the earliest among equals (hours without
    // sessions count as zero); none for a day without sessions.
    std::optional<int> busiestHour() const;

    // Bytes to keep beside the day. The hours are local hours, so they are tagged with the
    // time zone they were taken in, and decode only in that zone: anything else (another
    // zone, another layout, damaged bytes) gives nothing.
    QByteArray encode(const QByteArray& zoneId) const;
    static std::optional<StoredDaySummary> decode(const QByteArray& bytes,
                                                  const QByteArray& zoneId);

    bool operator==(const StoredDaySummary&) const = default;
};
