#include "SessionCodec.h"

#include "CheckedMath.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <charconv>
#include <cmath>

namespace SessionCodec {
namespace {

void appendString(QByteArray& out, const QString& s) {
    out.append('"');
    const QByteArray utf8 = s.toUtf8();
    for (const char ch : utf8) {
        const auto c = static_cast<unsigned char>(ch);
        switch (c) {
        case '"':
            out.append("\\\"");
            break;
        case '\\':
            out.append("\\\\");
            break;
        case '/':
            out.append("\\/"); // as the macOS encoder writes it
            break;
        case '\n':
            out.append("\\n");
            break;
        case '\r':
            out.append("\\r");
            break;
        case '\t':
            out.append("\\t");
            break;
        case '\b':
            out.append("\\b");
            break;
        case '\f':
            out.append("\\f");
            break;
        default:
            if (c < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                out.append(buf);
            } else {
                out.append(ch);
            }
        }
    }
    out.append('"');
}

void appendDouble(QByteArray& out, double d) {
    if (!std::isfinite(d))
        d = 0.0; // JSON has no infinities; times are finite in practice
    char buf[32];
    const auto res = std::to_chars(buf, buf + sizeof buf, d);
    out.append(buf, res.ptr - buf);
}

void appendInteger(QByteArray& out, qint64 v) {
    char buf[24];
    const auto res = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, res.ptr - buf);
}

std::optional<qint64> integerValue(const QJsonValue& v) {
    if (!v.isDouble())
        return std::nullopt;
    // Integers that fit 64 bits are kept exactly by the parser; others arrive as doubles.
    const qint64 exact = v.toInteger(std::numeric_limits<qint64>::min());
    if (exact != std::numeric_limits<qint64>::min() || v.toDouble() == -9223372036854775808.0)
        return exact;
    return std::nullopt;
}

std::optional<ActivitySession> decodeSession(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject o = value.toObject();
    // One pass over the members rather than a lookup per key.
    QJsonValue id, bundle, name, type, start, end, raw;
    for (auto it = o.constBegin(); it != o.constEnd(); ++it) {
        const QString k = it.key();
        if (k == QLatin1String("id"))
            id = it.value();
        else if (k == QLatin1String("appBundleID"))
            bundle = it.value();
        else if (k == QLatin1String("appName"))
            name = it.value();
        else if (k == QLatin1String("tokenType"))
            type = it.value();
        else if (k == QLatin1String("startTime"))
            start = it.value();
        else if (k == QLatin1String("endTime"))
            end = it.value();
        else if (k == QLatin1String("rawTokens"))
            raw = it.value();
    }
    if (!id.isString() || !bundle.isString() || !name.isString() || !type.isString() ||
        !start.isDouble() || !end.isDouble())
        return std::nullopt;

    const QString idText = id.toString();
    const QUuid uuid = QUuid::fromString(idText);
    if (idText.size() != 36 || uuid.isNull())
        return std::nullopt;
    const std::optional<TokenType> tokenType = TokenTypes::fromRawValue(type.toString());
    if (!tokenType)
        return std::nullopt;
    const std::optional<qint64> rawTokens = integerValue(raw);
    if (!rawTokens || !ActivitySession::weighted(*rawTokens, *tokenType))
        return std::nullopt;

    return ActivitySession{uuid,       bundle.toString(),  name.toString(),
                           *tokenType, {start.toDouble()}, {end.toDouble()},
                           *rawTokens};
}

} // namespace

QByteArray encodeSession(const ActivitySession& s) {
    QByteArray out;
    out.reserve(256);
    out.append("{\"id\":\"");
    out.append(s.id.toByteArray(QUuid::WithoutBraces).toUpper());
    out.append("\",\"appBundleID\":");
    appendString(out, s.appBundleID);
    out.append(",\"appName\":");
    appendString(out, s.appName);
    out.append(",\"tokenType\":\"");
    out.append(TokenTypes::rawValue(s.tokenType).toLatin1());
    out.append("\",\"startTime\":");
    appendDouble(out, s.startTime.secondsSinceReference);
    out.append(",\"endTime\":");
    appendDouble(out, s.endTime.secondsSinceReference);
    out.append(",\"rawTokens\":");
    appendInteger(out, s.rawTokens);
    out.append('}');
    return out;
}

QByteArray encodeDay(const QList<ActivitySession>& sessions) {
    QByteArray out;
    out.reserve(2 + sessions.size() * 220);
    out.append('[');
    for (qsizetype i = 0; i < sessions.size(); ++i) {
        if (i)
            out.append(',');
        out.append(encodeSession(sessions[i]));
    }
    out.append(']');
    return out;
}

std::optional<QList<ActivitySession>> decodeDay(const QByteArray& json) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        return std::nullopt;
    const QJsonArray array = doc.array();
    QList<ActivitySession> sessions;
    sessions.reserve(array.size());
    qint64 magnitude = 0;
    for (const QJsonValue& v : array) {
        std::optional<ActivitySession> s = decodeSession(v);
        if (!s)
            return std::nullopt;
        const qint64 w = s->weightedTokens();
        if (w > maxDayTokens || w < -maxDayTokens)
            return std::nullopt;
        magnitude += w < 0 ? -w : w; // at most twice the cap: no overflow

        if (magnitude > maxDayTokens)
            return std::nullopt;
        sessions.append(std::move(*s));
    }
    return sessions;
}

} // namespace SessionCodec
