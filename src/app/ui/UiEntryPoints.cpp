// The UI library's entry points: the dashboard and preferences windows, and the snapshot
// mode. Loaded by the executable when first needed.

#include "PopoverWindow.h"
#include "PreferencesWindow.h"
#include "SnapshotMode.h"
#include "ViewHost.h"
#include "app/DashboardWindows.h"
#include "views/Symbols.h"

#include <QQmlExtensionPlugin>

#include <memory>

Q_IMPORT_QML_PLUGIN(MindmeterPlugin)

namespace {

class QuickDashboardWindows final : public DashboardWindows {
public:
    QuickDashboardWindows(const QVariantMap& popoverModels, const QVariantMap& preferencesModels,
                          bool ordinaryWindow)
        : m_host(popoverModels.value(QStringLiteral("events")).value<QObject*>())
        , m_popover(m_host, popoverModels,
                    ordinaryWindow ? PopoverWindow::Style::ordinaryWindow
                                   : PopoverWindow::Style::popover)
        , m_preferences(m_host, preferencesModels) {}
    void togglePopover(QPoint anchor) override { m_popover.toggle(anchor); }
    void showPopover(QPoint anchor) override { m_popover.show(anchor); }
    bool isPopoverVisible() const override { return m_popover.isVisible(); }
    void showPreferences() override { m_preferences.show(); }

private:
    ViewHost m_host;
    PopoverWindow m_popover;
    PreferencesWindow m_preferences;
};

} // namespace

extern "C" Q_DECL_EXPORT DashboardWindows*
mindmeter_create_dashboard_windows(const QVariantMap& popoverModels,
                                   const QVariantMap& preferencesModels, bool ordinaryWindow,
                                   QString* error) {
    if (!Symbols::loadFont() && error)
        *error = QStringLiteral("the icon font (Material Icons) is not installed");
    return new QuickDashboardWindows(popoverModels, preferencesModels, ordinaryWindow);
}

extern "C" Q_DECL_EXPORT int mindmeter_run_snapshot(int argc, char* argv[], const char* directory,
                                                    MakeSnapshotModels makeModels) {
    return SnapshotMode::run(argc, argv, QString::fromLocal8Bit(directory), makeModels);
}
