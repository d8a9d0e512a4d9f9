// `mindmeter categories`: the registry, the applications seen lately and the user's own
// rules; `set` and `remove` change the rules, which the running app follows at once.
#include "CommandLine.h"

#include "model/CategoryRules.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "store/RecentApplications.h"

namespace {

QString ruleLine(const CategoryRule& rule) {
    const QString match =
        rule.kind == CategoryRule::Kind::site ? QStringLiteral("site ") + rule.match : rule.match;
    return QStringLiteral("  %1  %2\n").arg(match.leftJustified(34), rule.targetText());
}

QString categoryLine(const AppCategory& c) {
    return QStringLiteral("%1 (%2, %3 per minute)")
        .arg(c.displayName, TokenTypes::rawValue(c.tokenType))
        .arg(c.tokensPerMinute);
}

} // namespace

QString CommandLine::unreadableRulesMessage() {
    return QStringLiteral("the stored category rules (%1) cannot be read and are ignored; "
                          "see them with 'mindmeter defaults read %1', remove them with "
                          "'mindmeter defaults delete %1'")
        .arg(CategoryRules::key);
}

int CommandLine::categories(const QStringList& args) {
    const QString action = args.value(0);
    if (args.isEmpty())
        return withStore([this](Defaults& store) { return listCategories(store); });
    if (action != QLatin1String("set") && action != QLatin1String("remove"))
        return usageError(QStringLiteral("categories takes set or remove, or nothing"));

    // Check the whole command line before opening the store, so bad input writes nothing.
    QStringList rest = args.mid(1);
    CategoryRule::Kind kind = CategoryRule::Kind::app;
    if (rest.value(0) == QLatin1String("--site")) {
        kind = CategoryRule::Kind::site;
        rest.removeFirst();
    }
    const QString what =
        kind == CategoryRule::Kind::site ? QStringLiteral("DOMAIN") : QStringLiteral("APP-ID");
    std::optional<CategoryRule> rule;
    if (action == QLatin1String("set")) {
        if (rest.size() < 2 || rest.size() > 3)
            return usageError(QStringLiteral("categories set needs %1 and a CATEGORY, or %1, "
                                             "a TYPE and a RATE")
                                  .arg(what));
        QString error;
        rule = CategoryRules::make(kind, rest[0], rest.mid(1), &error);
        if (!rule)
            return usageError(error);
    } else {
        if (rest.size() != 1)
            return usageError(QStringLiteral("categories remove needs %1").arg(what));
        if (rest[0].trimmed().isEmpty())
            return usageError(QStringLiteral("the %1 is empty").arg(what.toLower()));
    }

    return withStore([&](Defaults& store) {
        const CategoryRules current = CategoryRules::read(store);
        if (current.isCorrupt())
            return failure(unreadableRulesMessage());
        QList<CategoryRule> updated;
        if (rule) {
            updated = current.with(*rule);
        } else {
            std::optional<QList<CategoryRule>> remaining = current.without(kind, rest[0]);
            if (!remaining)
                return failure(QStringLiteral("no rule for %1").arg(rest[0].trimmed()));
            updated = *remaining;
        }
        if (!CategoryRules::write(store, updated))
            return failure(
                QStringLiteral("cannot write %1: %2").arg(CategoryRules::key, store.lastError()));
        return 0;
    });
}

int CommandLine::listCategories(Defaults& store) {
    const CategoryRules rules = CategoryRules::read(store);
    if (rules.isCorrupt())
        say(unreadableRulesMessage());

    QString text = QStringLiteral("Your rules (consulted first; the longest match wins):\n");
    for (const CategoryRule& r : rules.rules())
        text += ruleLine(r);
    if (rules.rules().isEmpty())
        text += QStringLiteral("  none\n");

    text += QStringLiteral("\nApplications seen in the last 30 days:\n");
    const QList<RecentApplications::Application> seen =
        RecentApplications::read(store, m_clock.now().toLocalTime().date());
    for (const RecentApplications::Application& app : seen) {
        const CategoryRule* rule = rules.appRule(app.bundleID);
        text += QStringLiteral("  %1  %2  %3%4\n")
                    .arg(app.bundleID.leftJustified(34), app.name.leftJustified(20),
                         rule ? rule->targetText() : category(app.bundleID).displayName,
                         rule ? QStringLiteral(" (your rule)") : QString());
    }
    if (seen.isEmpty())
        text += QStringLiteral("  none\n");

    text += QStringLiteral("\nThe registry (application id prefixes, the longest wins):\n");
    for (const AppCategory& c : appCategoryRegistry())
        text += QStringLiteral("  %1\n      %2\n")
                    .arg(categoryLine(c), c.bundleIDPrefixes.join(QStringLiteral(" ")));
    text +=
        QStringLiteral("  %1\n      any other identifier\n").arg(categoryLine(category(QString())));
    print(text);
    return 0;
}
