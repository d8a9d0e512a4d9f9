#pragma once

#include "platform/StatusItem.h"

#include <QString>

#include <functional>
#include <optional>

// The status item's menu: the version, the update when one is known, the dashboard and
// preferences, export, reset, feedback and quit, with separators between the groups.
namespace StatusMenu {

struct Actions {
    std::function<void()> openUpdatePage, togglePopover, showPreferences, copySummary, exportCSV,
        resetToday, sendFeedback, quit;
};

// availableUpdate: the newer version when the update check knows one.
QList<StatusMenuItem> build(const std::optional<QString>& availableUpdate, const Actions& actions);

} // namespace StatusMenu
