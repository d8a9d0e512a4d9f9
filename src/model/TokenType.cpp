#include "TokenType.h"

namespace TokenTypes {

double weight(TokenType type) {
    switch (type) {
    case TokenType::reasoning:
        return 3.0;
    case TokenType::output:
        return 2.0;
    case TokenType::input:
        return 1.0;
    case TokenType::ai:
        return 2.5;
    }
    Q_UNREACHABLE();
}

QString rawValue(TokenType type) {
    switch (type) {
    case TokenType::reasoning:
        return QStringLiteral("reasoning");
    case TokenType::output:
        return QStringLiteral("output");
    case TokenType::input:
        return QStringLiteral("input");
    case TokenType::ai:
        return QStringLiteral("ai");
    }
    Q_UNREACHABLE();
}

QString label(TokenType type) {
    switch (type) {
    case TokenType::reasoning:
        return QStringLiteral("Reasoning");
    case TokenType::output:
        return QStringLiteral("Output");
    case TokenType::input:
        return QStringLiteral("Input");
    case TokenType::ai:
        return QStringLiteral("AI Collab");
    }
    Q_UNREACHABLE();
}

QString symbol(TokenType type) {
    switch (type) {
    case TokenType::reasoning:
        return QStringLiteral("bolt.fill");
    case TokenType::output:
        return QStringLiteral("keyboard");
    case TokenType::input:
        return QStringLiteral("book");
    case TokenType::ai:
        return QStringLiteral("sparkles");
    }
    Q_UNREACHABLE();
}

NamedColor color(TokenType type) {
    switch (type) {
    case TokenType::reasoning:
        return NamedColor::purple;
    case TokenType::output:
        return NamedColor::blue;
    case TokenType::input:
        return NamedColor::green;
    case TokenType::ai:
        return NamedColor::orange;
    }
    Q_UNREACHABLE();
}

std::optional<TokenType> fromRawValue(QStringView raw) {
    for (TokenType t : allCases)
        if (raw == rawValue(t))
            return t;
    return std::nullopt;
}

} // namespace TokenTypes
