#include "StatusPresenter.h"

#include "model/Format.h"
#include "model/MenuBarDisplay.h"
#include "model/PreferencesModel.h"
#include "sensing/ActivityMonitor.h"
#include "store/DayStore.h"

StatusPresenter::StatusPresenter(StatusItem& item, const DayStore& store,
                                 const ActivityMonitor& monitor,
                                 const PreferencesModel& preferences, QObject* parent)
    : QObject(parent)
    , m_item(item)
    , m_store(store)
    , m_monitor(monitor)
    , m_preferences(preferences) {
    connect(&store, &DayStore::todayChanged, this, &StatusPresenter::refresh);
    connect(&monitor, &ActivityMonitor::currentTypeChanged, this, &StatusPresenter::refresh);
    connect(&monitor, &ActivityMonitor::currentRateChanged, this, &StatusPresenter::refresh);
    connect(&preferences, &PreferencesModel::changed, this, &StatusPresenter::refresh);
    refresh();
}

StatusPresenter::Title StatusPresenter::title(qint64 total, TokenType type, qint64 rate,
                                              MenuBarDisplay display) {
    if (display == MenuBarDisplay::iconOnly)
        return {};
    const QString text = total < 1000 ? QStringLiteral(" %1 ").arg(total)
                                      : printfDouble(" %.1fk ", double(total) / 1000.0);
    return {text, rate == 0 ? QStringLiteral("circle.dotted") : TokenTypes::symbol(type)};
}

StatusItem::Icon StatusPresenter::icon(double saturation, MenuBarDisplay display) {
    if (display == MenuBarDisplay::countOnly)
        return StatusItem::Icon::none;
    if (saturation >= 0.9)
        return StatusItem::Icon::red;
    if (saturation < 0.8)
        return StatusItem::Icon::normal;
    return StatusItem::Icon::orange;
}

StatusItem::CountPlacement StatusPresenter::countPlacement(const QString& raw) {
    if (raw == QLatin1String("beside"))
        return StatusItem::CountPlacement::beside;
    if (raw == QLatin1String("inIcon"))
        return StatusItem::CountPlacement::inIcon;
    return StatusItem::CountPlacement::automatic;
}

void StatusPresenter::refresh() {
    const MenuBarDisplay display = MenuBarDisplays::fromRawValue(m_preferences.menuBarStyle())
                                       .value_or(MenuBarDisplay::iconAndCount);
    const Title t =
        title(m_store.totalWeighted(), m_monitor.currentType(), m_monitor.currentRate(), display);
    m_item.setCountPlacement(countPlacement(m_preferences.countPlacement()));
    m_item.setTitle(t.text, t.symbol);
    m_item.setIcon(icon(m_store.contextSaturation(), display));
}
