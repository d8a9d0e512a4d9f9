#include "ActivitySession.h"

#include <cmath>

std::optional<qint64> ActivitySession::weighted(qint64 rawTokens, TokenType type) {
    const double product = double(rawTokens) * TokenTypes::weight(type);
    // 2^63 is exactly representable; every finite double below it truncates into range.
    if (!std::isfinite(product) || product >= 9223372036854775808.0 ||
        product < -9223372036854775808.0)
        return std::nullopt;
    return static_cast<qint64>(product);
}

qint64 ActivitySession::weightedTokens() const {
    const std::optional<qint64> w = weighted(rawTokens, tokenType);
    if (!w)
        qFatal("weighted token count out of range: %lld raw %s tokens",
               static_cast<long long>(rawTokens), qPrintable(TokenTypes::rawValue(tokenType)));
    return *w;
}
