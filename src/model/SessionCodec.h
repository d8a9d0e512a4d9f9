#pragma once

#include "ActivitySession.h"

#include <QByteArray>
#include <QList>

#include <optional>

// The stored form of a day: a JSON array of session objects with the keys "id",
// "appBundleID", "appName", "tokenType", "startTime", "endTime" and "rawTokens". Ids are
// upper-case canonical UUIDs and times are seconds since 2001-01-01 UTC, so a day written
// on one platform reads on another.
namespace SessionCodec {

QByteArray encodeSession(const ActivitySession& session);
QByteArray encodeDay(const QList<ActivitySession>& sessions);

// The most weighted tokens a stored day may hold, counting each session's tokens as
// positive. Far beyond any real day (a day's budget is 25,000), and small enough that 90
// such days, today's sessions and any ratio of them stay well inside 64 bits.
inline constexpr qint64 maxDayTokens = qint64(1) << 50;

// Every key must be present with the right type; an unknown token type, a malformed id, a
// fractional or out-of-range token count fails the whole day. A day holding more than
// maxDayTokens is refused too, so stored data can never overflow a total, a history sum or a
// percentage computed from it.
std::optional<QList<ActivitySession>> decodeDay(const QByteArray& json);

} // namespace SessionCodec
