#include "StatusMenu.h"

#include "model/AppVersion.h"

namespace StatusMenu {

QList<StatusMenuItem> build(const std::optional<QString>& availableUpdate, const Actions& a) {
    const auto item = [](const QString& title, const std::function<void()>& action,
                         const QString& shortcut = {}) {
        return StatusMenuItem{title, shortcut, true, false, action};
    };
    QList<StatusMenuItem> items;
    items.append({QStringLiteral("Mindmeter ") + QString::fromUtf8(AppVersion::displayString),
                  {},
                  false,
                  false,
                  {}});
    items.append(StatusMenuItem::separatorItem());
    if (availableUpdate) {
        items.append(item(QStringLiteral("\u2b06 Update available \u2014 v") + *availableUpdate,
                          a.openUpdatePage));
        items.append(StatusMenuItem::separatorItem());
    }
    items.append(item(QStringLiteral("Dashboard"), a.togglePopover));
    items.append(item(QStringLiteral("Preferences\u2026"), a.showPreferences, QStringLiteral(",")));
    items.append(StatusMenuItem::separatorItem());
    items.append(item(QStringLiteral("Copy Summary"), a.copySummary));
    items.append(item(QStringLiteral("Export CSV\u2026"), a.exportCSV));
    items.append(StatusMenuItem::separatorItem());
    items.append(item(QStringLiteral("Reset Today"), a.resetToday));
    items.append(StatusMenuItem::separatorItem());
    items.append(item(QStringLiteral("Send Feedback"), a.sendFeedback));
    items.append(StatusMenuItem::separatorItem());
    items.append(item(QStringLiteral("Quit"), a.quit, QStringLiteral("q")));
    return items;
}

} // namespace StatusMenu
