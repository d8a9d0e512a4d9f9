#pragma once

#include "NamedColor.h"

#include <QString>
#include <QStringView>

#include <array>
#include <optional>

// The four kinds of cognitive work, in their fixed order.
enum class TokenType { reasoning, output, input, ai };

namespace TokenTypes {

inline constexpr std::array<TokenType, 4> allCases{TokenType::reasoning, TokenType::output,
                                                   TokenType::input, TokenType::ai};

double weight(TokenType type);
QString rawValue(TokenType type);
QString label(TokenType type);
QString symbol(TokenType type);
NamedColor color(TokenType type);
std::optional<TokenType> fromRawValue(QStringView raw);

} // namespace TokenTypes
