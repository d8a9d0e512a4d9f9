#pragma once

#include "AppCategory.h"
#include "TokenType.h"

#include "platform/Defaults.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// One of the user's own category rules: an application identifier prefix, or a web domain
// for the browser tracker, reassigned to one of the seventeen categories or to a token
// type and rate of its own.
struct CategoryRule {
    enum class Kind { app, site };
    Kind kind = Kind::app;
    QString match;
    // One of the registry's display names; empty for a rule that gives a type and a rate.
    QString categoryName;
    TokenType tokenType = TokenType::input;
    qint64 tokensPerMinute = 0;

    bool namesCategory() const { return !categoryName.isEmpty(); }
    bool sameMatch(const CategoryRule& other) const;
    // "Writing" or "reasoning, 20 per minute".
    QString targetText() const;
};

// The user's rules, stored as one JSON list under "mindmeter.categoryRules":
//   [{"app": "org.kde.kate", "category": "Writing"},
//    {"site": "chat.example.com", "type": "ai", "rate": 40}]
// Rules are consulted before the registry: among the rules matching an identifier the
// longest match wins (case-insensitive prefix for applications, case-insensitive substring
// of the tab's address for sites). A stored list with any invalid entry is ignored whole,
// so no rule ever applies half-read. With no rules every lookup is the registry's own.
class CategoryRules {
public:
    inline static const QString key = QStringLiteral("mindmeter.categoryRules");
    // A sensible ceiling: twenty times the fastest category of the registry.
    static constexpr qint64 maxTokensPerMinute = 1000;

    CategoryRules() = default;
    explicit CategoryRules(QList<CategoryRule> rules, bool corrupt = false);

    // The stored rules: none when the key is absent; none, marked corrupt, when the value
    // cannot be read as a whole.
    static CategoryRules read(const Defaults& defaults);
    // Stores the list, or removes the key when the list is empty.
    static bool write(Defaults& defaults, const QList<CategoryRule>& rules);

    static std::optional<QList<CategoryRule>> decode(const QByteArray& json);
    static QByteArray encode(const QList<CategoryRule>& rules);

    // A rule from what the user gave: target is a category name (any case) or a token
    // type and a rate. Nothing, with *error saying why, when any part is not valid.
    static std::optional<CategoryRule> make(CategoryRule::Kind kind, const QString& match,
                                            const QStringList& target, QString* error);
    // The registry's category of that display name, compared without regard to case.
    static const AppCategory* registryCategory(const QString& name);
    static QStringList categoryNames();

    const QList<CategoryRule>& rules() const { return m_rules; }
    bool isCorrupt() const { return m_corrupt; }

    const CategoryRule* appRule(const QString& bundleID) const;
    const CategoryRule* siteRule(const QString& url) const;
    // The category of an application: its longest matching rule, else the registry's.
    AppCategory categoryFor(const QString& bundleID) const;
    // The rule's target as a category (the registry's own, or one made of type and rate).
    static AppCategory categoryOf(const CategoryRule& rule);

    // The list with the rule added, replacing one of the same kind and match.
    QList<CategoryRule> with(const CategoryRule& rule) const;
    // The list without the rule of that kind and match; nothing if there is none.
    std::optional<QList<CategoryRule>> without(CategoryRule::Kind kind, const QString& match) const;

private:
    QList<CategoryRule> m_rules;
    bool m_corrupt = false;
};
