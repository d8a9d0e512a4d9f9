#pragma once

#include "TokenType.h"

#include <QString>
#include <QStringList>

#include <vector>

// A family of applications: what kind of tokens time in them earns, and how fast.
struct AppCategory {
    QStringList bundleIDPrefixes;
    TokenType tokenType = TokenType::input;
    qint64 tokensPerMinute = 0;
    QString displayName;
    bool isTerminal = false;
};

// The fixed, ordered list of the seventeen categories.
const std::vector<AppCategory>& appCategoryRegistry();

// Case-insensitive longest-prefix lookup of an application identifier. Never fails:
// unknown identifiers get a fresh "Other" category holding the identifier as given.
AppCategory category(const QString& forBundleID);
