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

// Every key must be present with the right type; an unknown token type, a malformed id, a
// fractional or out-of-range token count fails the whole day. A day whose weighted tokens
// cannot be summed in 64 bits is refused too, so stored data can never overflow a total.
std::optional<QList<ActivitySession>> decodeDay(const QByteArray& json);

} // namespace SessionCodec
