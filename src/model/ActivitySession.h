#pragma once

#include "Timestamp.h"
#include "TokenType.h"

#include <QString>
#include <QUuid>

// One stretch of activity in one application.
struct ActivitySession {
    QUuid id;
    QString appBundleID;
    QString appName;
    TokenType tokenType = TokenType::input;
    Timestamp startTime;
    Timestamp endTime;
    qint64 rawTokens = 0;

    // rawTokens × the type's weight, truncated toward zero. A product that is not a
    // finite 64-bit value stops the process.
    qint64 weightedTokens() const;
    // Seconds from start to end.
    double duration() const { return endTime - startTime; }

    // The weighted count, or nothing when it cannot be represented (used to vet stored data).
    static std::optional<qint64> weighted(qint64 rawTokens, TokenType type);

    bool operator==(const ActivitySession&) const = default;
};
