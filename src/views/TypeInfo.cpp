#include "TypeInfo.h"

#include "model/TokenType.h"

QStringList TypeInfo::allCases() const {
    QStringList raws;
    for (TokenType t : TokenTypes::allCases)
        raws << TokenTypes::rawValue(t);
    return raws;
}

QString TypeInfo::symbol(const QString& raw) const {
    return TokenTypes::symbol(TokenTypes::fromRawValue(raw).value_or(TokenType::input));
}

QString TypeInfo::label(const QString& raw) const {
    return TokenTypes::label(TokenTypes::fromRawValue(raw).value_or(TokenType::input));
}
