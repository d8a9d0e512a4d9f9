#include "SnapshotWorld.h"

#include "demo/DemoServices.h"
#include "demo/DemoWorkspace.h"

#include "model/AppEvents.h"
#include "model/CategoryRules.h"
#include "model/OnboardingNote.h"
#include "model/PreferencesModel.h"
#include "sensing/ActivityMonitor.h"
#include "sensing/SessionContextEngine.h"
#include "services/CategoriesModel.h"
#include "store/DayStore.h"
#include "store/DaySummary.h"
#include "store/DemoData.h"
#include "store/SqliteDefaults.h"

#include <QCoreApplication>

namespace {

// Fixed so the pictures do not depend on the day they are made: a Thursday afternoon.
class SnapshotClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime(QDate(2026, 5, 28), QTime(15, 40)); }
};

// Demo data in memory only: the user's own store is never opened.
std::unique_ptr<SqliteDefaults> demoStore(const Clock& clock) {
    std::unique_ptr<SqliteDefaults> defaults = SqliteDefaults::open(QStringLiteral(":memory:"));
    DemoData::fill(*defaults, clock.now());
    return defaults;
}

} // namespace

struct SnapshotWorld::Parts {
    SnapshotClock clock;
    std::unique_ptr<SqliteDefaults> defaults = demoStore(clock);
    DayStore store{*defaults, clock};
    DaySummary summary{store};
    DemoWorkspace desktop;
    SessionContextEngine context{desktop, desktop, store, *defaults, clock};
    ActivityMonitor monitor{
        store, desktop, desktop, *defaults, clock, [this] { return context.multiplier(); }, {}};
    PreferencesModel preferences{*defaults};
    std::unique_ptr<CategoriesModel> categories;
    AppEvents events;
    OnboardingNote note{OnboardingNote::forThisSession()};
    DemoServices services;
};

SnapshotWorld::SnapshotWorld()
    : m_parts(std::make_unique<Parts>()) {
    Parts& p = *m_parts;
    p.monitor.start();
    QMetaObject::invokeMethod(&p.context, "tick");
    p.store.waitForHistory();
    QCoreApplication::processEvents();
    // One rule of the user's, so the categories tab shows both kinds of entry.
    QString ignored;
    CategoryRules::write(
        *p.defaults, {*CategoryRules::make(CategoryRule::Kind::app, QStringLiteral("com.tinyspeck"),
                                           {QStringLiteral("Writing")}, &ignored)});
    p.categories = std::make_unique<CategoriesModel>(*p.defaults, p.clock);
    p.categories->refresh();
}

SnapshotWorld::~SnapshotWorld() {
    m_parts->monitor.stop();
}

QVariantMap SnapshotWorld::popoverModels() const {
    Parts& p = *m_parts;
    const auto object = [](QObject* o) { return QVariant::fromValue(o); };
    return {
        {QStringLiteral("store"), object(&p.summary)},
        {QStringLiteral("monitor"), object(&p.monitor)},
        {QStringLiteral("context"), object(&p.context)},
        {QStringLiteral("spotlight"), object(&p.services)},
        {QStringLiteral("checker"), object(&p.services)},
        {QStringLiteral("exporter"), object(&p.services)},
        {QStringLiteral("preferences"), object(&p.preferences)},
        {QStringLiteral("events"), object(&p.events)},
        {QStringLiteral("onboardingNote"), object(&p.note)},
    };
}

QObject* SnapshotWorld::categories() const {
    return m_parts->categories.get();
}

SnapshotModels* SnapshotWorld::make() {
    return new SnapshotWorld;
}
