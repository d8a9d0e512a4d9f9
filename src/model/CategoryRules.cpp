#include "CategoryRules.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <cmath>
#include <utility>

namespace {

const QString appField = QStringLiteral("app");
const QString siteField = QStringLiteral("site");
const QString categoryField = QStringLiteral("category");
const QString typeField = QStringLiteral("type");
const QString rateField = QStringLiteral("rate");

QString fieldOf(CategoryRule::Kind kind) {
    return kind == CategoryRule::Kind::app ? appField : siteField;
}

std::optional<qint64> rateFrom(const QString& text) {
    bool ok = false;
    const qint64 rate = text.toLongLong(&ok);
    if (!ok || rate < 1 || rate > CategoryRules::maxTokensPerMinute)
        return std::nullopt;
    return rate;
}

// The longest match among the rules of one kind; the first of equal length wins.
template <typename Matches>
const CategoryRule* longest(const QList<CategoryRule>& rules, CategoryRule::Kind kind,
                            Matches matches) {
    const CategoryRule* best = nullptr;
    for (const CategoryRule& r : rules)
        if (r.kind == kind && matches(r.match) && (!best || r.match.size() > best->match.size()))
            best = &r;
    return best;
}

} // namespace

bool CategoryRule::sameMatch(const CategoryRule& other) const {
    return kind == other.kind && match.compare(other.match, Qt::CaseInsensitive) == 0;
}

QString CategoryRule::targetText() const {
    if (namesCategory())
        return categoryName;
    return QStringLiteral("%1, %2 per minute")
        .arg(TokenTypes::rawValue(tokenType))
        .arg(tokensPerMinute);
}

CategoryRules::CategoryRules(QList<CategoryRule> rules, bool corrupt)
    : m_rules(std::move(rules))
    , m_corrupt(corrupt) {}

CategoryRules CategoryRules::read(const Defaults& defaults) {
    const QVariant v = defaults.value(key);
    if (!v.isValid())
        return {};
    const QByteArray json =
        v.typeId() == QMetaType::QByteArray ? v.toByteArray() : v.toString().toUtf8();
    std::optional<QList<CategoryRule>> rules = decode(json);
    if (!rules)
        return CategoryRules({}, true);
    return CategoryRules(std::move(*rules));
}

bool CategoryRules::write(Defaults& defaults, const QList<CategoryRule>& rules) {
    if (rules.isEmpty())
        return defaults.remove(key);
    return defaults.setString(key, QString::fromUtf8(encode(rules)));
}

std::optional<QList<CategoryRule>> CategoryRules::decode(const QByteArray& json) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        return std::nullopt;
    QList<CategoryRule> rules;
    for (const QJsonValue& value : doc.array()) {
        const QJsonObject o = value.toObject();
        if (!value.isObject() || o.contains(appField) == o.contains(siteField))
            return std::nullopt;
        const CategoryRule::Kind kind =
            o.contains(appField) ? CategoryRule::Kind::app : CategoryRule::Kind::site;
        const QJsonValue match = o.value(fieldOf(kind));
        QStringList target;
        if (o.contains(categoryField) && !o.contains(typeField) && !o.contains(rateField) &&
            o.value(categoryField).isString()) {
            target = {o.value(categoryField).toString()};
        } else if (!o.contains(categoryField) && o.value(typeField).isString() &&
                   o.value(rateField).isDouble()) {
            // Checked before the conversion: a double out of range has no integer value.
            const double rate = o.value(rateField).toDouble();
            if (!(rate >= 1 && rate <= double(maxTokensPerMinute)) || rate != std::trunc(rate))
                return std::nullopt;
            target = {o.value(typeField).toString(), QString::number(qint64(rate))};
        } else {
            return std::nullopt;
        }
        QString ignored;
        std::optional<CategoryRule> rule =
            match.isString() ? make(kind, match.toString(), target, &ignored) : std::nullopt;
        if (!rule)
            return std::nullopt;
        rules.append(std::move(*rule));
    }
    return rules;
}

QByteArray CategoryRules::encode(const QList<CategoryRule>& rules) {
    QJsonArray list;
    for (const CategoryRule& r : rules) {
        QJsonObject o{{fieldOf(r.kind), r.match}};
        if (r.namesCategory()) {
            o.insert(categoryField, r.categoryName);
        } else {
            o.insert(typeField, TokenTypes::rawValue(r.tokenType));
            o.insert(rateField, r.tokensPerMinute);
        }
        list.append(o);
    }
    return QJsonDocument(list).toJson(QJsonDocument::Compact);
}

std::optional<CategoryRule> CategoryRules::make(CategoryRule::Kind kind, const QString& match,
                                                const QStringList& target, QString* error) {
    const QString trimmed = match.trimmed();
    const QString what = kind == CategoryRule::Kind::app ? QStringLiteral("application id")
                                                         : QStringLiteral("domain");
    if (trimmed.isEmpty()) {
        *error = QStringLiteral("the %1 is empty").arg(what);
        return std::nullopt;
    }
    if (trimmed.contains(QRegularExpression(QStringLiteral("\\s")))) {
        *error = QStringLiteral("the %1 '%2' contains a space").arg(what, trimmed);
        return std::nullopt;
    }
    CategoryRule rule{kind, trimmed, {}, TokenType::input, 0};
    if (target.size() == 1) {
        const AppCategory* c = registryCategory(target.first());
        if (!c) {
            *error = QStringLiteral("unknown category '%1'; the categories are: %2")
                         .arg(target.first(), categoryNames().join(QStringLiteral(", ")));
            return std::nullopt;
        }
        rule.categoryName = c->displayName;
        rule.tokenType = c->tokenType;
        rule.tokensPerMinute = c->tokensPerMinute;
        return rule;
    }
    if (target.size() == 2) {
        const std::optional<TokenType> type = TokenTypes::fromRawValue(target[0]);
        if (!type) {
            *error = QStringLiteral("unknown token type '%1'; the types are reasoning, output, "
                                    "input and ai")
                         .arg(target[0]);
            return std::nullopt;
        }
        const std::optional<qint64> rate = rateFrom(target[1]);
        if (!rate) {
            *error = QStringLiteral("the rate '%1' is not a whole number of tokens per minute "
                                    "from 1 to %2")
                         .arg(target[1])
                         .arg(maxTokensPerMinute);
            return std::nullopt;
        }
        rule.tokenType = *type;
        rule.tokensPerMinute = *rate;
        return rule;
    }
    *error = QStringLiteral("give a CATEGORY, or a TYPE and a RATE");
    return std::nullopt;
}

const AppCategory* CategoryRules::registryCategory(const QString& name) {
    const QString wanted = name.trimmed();
    for (const AppCategory& c : appCategoryRegistry())
        if (c.displayName.compare(wanted, Qt::CaseInsensitive) == 0)
            return &c;
    return nullptr;
}

QStringList CategoryRules::categoryNames() {
    QStringList names;
    for (const AppCategory& c : appCategoryRegistry())
        names << c.displayName;
    return names;
}

const CategoryRule* CategoryRules::appRule(const QString& bundleID) const {
    return longest(m_rules, CategoryRule::Kind::app, [&](const QString& match) {
        return bundleID.startsWith(match, Qt::CaseInsensitive);
    });
}

const CategoryRule* CategoryRules::siteRule(const QString& url) const {
    return longest(m_rules, CategoryRule::Kind::site,
                   [&](const QString& match) { return url.contains(match, Qt::CaseInsensitive); });
}

AppCategory CategoryRules::categoryFor(const QString& bundleID) const {
    if (const CategoryRule* rule = appRule(bundleID))
        return categoryOf(*rule);
    return category(bundleID);
}

AppCategory CategoryRules::categoryOf(const CategoryRule& rule) {
    if (const AppCategory* c = rule.namesCategory() ? registryCategory(rule.categoryName) : nullptr)
        return *c;
    return AppCategory{
        {rule.match}, rule.tokenType, rule.tokensPerMinute, QStringLiteral("Custom"), false};
}

QList<CategoryRule> CategoryRules::with(const CategoryRule& rule) const {
    QList<CategoryRule> rules = m_rules;
    for (CategoryRule& r : rules)
        if (r.sameMatch(rule)) {
            r = rule;
            return rules;
        }
    rules.append(rule);
    return rules;
}

std::optional<QList<CategoryRule>> CategoryRules::without(CategoryRule::Kind kind,
                                                          const QString& match) const {
    QList<CategoryRule> rules = m_rules;
    const CategoryRule probe{kind, match.trimmed(), {}, TokenType::input, 0};
    if (rules.removeIf([&](const CategoryRule& r) { return r.sameMatch(probe); }) == 0)
        return std::nullopt;
    return rules;
}
