#include "CategoriesModel.h"

#include "model/CategoryRules.h"
#include "store/RecentApplications.h"

#include <QVariantMap>

CategoriesModel::CategoriesModel(Defaults& defaults, const Clock& clock, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_clock(clock)
    , m_rulesRevision(defaults.revision(CategoryRules::key)) {
    // Another process's write arrives with an empty key; only a change of the rules counts.
    connect(&m_defaults, &Defaults::valueChanged, this, [this](const QString& key) {
        if (!key.isEmpty() && key != CategoryRules::key)
            return;
        const quint64 revision = m_defaults.revision(CategoryRules::key);
        if (revision == m_rulesRevision)
            return;
        m_rulesRevision = revision;
        emit changed();
    });
}

void CategoriesModel::refresh() {
    m_seen.clear();
    for (const RecentApplications::Application& app :
         RecentApplications::read(m_defaults, m_clock.now().toLocalTime().date()))
        m_seen.append({app.bundleID, app.name});
    emit changed();
}

QVariantList CategoriesModel::applications() const {
    const CategoryRules rules = CategoryRules::read(m_defaults);
    QVariantList list;
    for (const Seen& app : m_seen) {
        const CategoryRule* rule = rules.appRule(app.bundleID);
        list.append(QVariantMap{
            {QStringLiteral("bundleID"), app.bundleID},
            {QStringLiteral("name"), app.name},
            {QStringLiteral("category"),
             rule ? rule->targetText() : category(app.bundleID).displayName},
            {QStringLiteral("ruled"), rule != nullptr},
        });
    }
    return list;
}

QVariantList CategoriesModel::rules() const {
    QVariantList list;
    const CategoryRules stored = CategoryRules::read(m_defaults);
    for (const CategoryRule& r : stored.rules())
        list.append(QVariantMap{{QStringLiteral("site"), r.kind == CategoryRule::Kind::site},
                                {QStringLiteral("match"), r.match},
                                {QStringLiteral("target"), r.targetText()}});
    return list;
}

QStringList CategoriesModel::categoryNames() const {
    return CategoryRules::categoryNames();
}

bool CategoriesModel::rulesUnreadable() const {
    return CategoryRules::read(m_defaults).isCorrupt();
}

bool CategoriesModel::assign(const QString& bundleID, const QString& categoryName) {
    const CategoryRules current = CategoryRules::read(m_defaults);
    QString error;
    const std::optional<CategoryRule> rule =
        CategoryRules::make(CategoryRule::Kind::app, bundleID, {categoryName}, &error);
    if (current.isCorrupt() || !rule)
        return false;
    return CategoryRules::write(m_defaults, current.with(*rule));
}

bool CategoriesModel::removeRule(bool site, const QString& match) {
    const CategoryRules current = CategoryRules::read(m_defaults);
    const std::optional<QList<CategoryRule>> remaining =
        current.without(site ? CategoryRule::Kind::site : CategoryRule::Kind::app, match);
    return !current.isCorrupt() && remaining && CategoryRules::write(m_defaults, *remaining);
}

bool CategoriesModel::removeUnreadableRules() {
    return CategoryRules::read(m_defaults).isCorrupt() && m_defaults.remove(CategoryRules::key);
}
