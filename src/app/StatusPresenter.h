#pragma once

#include "model/MenuBarDisplay.h"
#include "model/TokenType.h"
#include "platform/StatusItem.h"

#include <QObject>

class ActivityMonitor;
class DayStore;
class PreferencesModel;

// Keeps the status item's title and icon in step with today's total, the kind of work in
// front and the menu-bar style. Any change of these — including a setting changed by
// another process — re-evaluates both at once.
class StatusPresenter : public QObject {
    Q_OBJECT
public:
    struct Title {
        QString text;
        QString symbol;
        bool operator==(const Title&) const = default;
    };

    StatusPresenter(StatusItem& item, const DayStore& store, const ActivityMonitor& monitor,
                    const PreferencesModel& preferences, QObject* parent = nullptr);

    // " 950 " below a thousand, " 12.3k " from there; the symbol of the kind of work, or a
    // dotted circle while nothing earns tokens. Icon-only shows no title at all.
    static Title title(qint64 total, TokenType type, qint64 rate, MenuBarDisplay display);
    // Red from 0.9 of the budget, orange from 0.8, the plain icon below; none for count-only.
    static StatusItem::Icon icon(double saturation, MenuBarDisplay display);
    // The "mindmeter.countPlacement" setting's value as the item takes it.
    static StatusItem::CountPlacement countPlacement(const QString& raw);

public slots:
    void refresh();

private:
    StatusItem& m_item;
    const DayStore& m_store;
    const ActivityMonitor& m_monitor;
    const PreferencesModel& m_preferences;
};
