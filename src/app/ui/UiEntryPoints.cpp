// The UI library's entry points: the dashboard and preferences windows, and the snapshot
// mode. Loaded by the executable when first needed.

#include "PopoverWindow.h"
#include "PreferencesWindow.h"
#include "SnapshotMode.h"
#include "ViewHost.h"
#include "app/DashboardWindows.h"
#include "views/Symbols.h"

#include <QQmlExtensionPlugin>
#include <QQuickWindow>
#include <QSet>

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
    ~QuickDashboardWindows() override {
        // Windows that go report no hiding to a half-destroyed object.
        for (QQuickWindow* window : std::as_const(m_watched))
            QObject::disconnect(window, nullptr, &m_host, nullptr);
    }
    void togglePopover(QPoint anchor) override {
        m_popover.toggle(anchor);
        watch(m_popover.window());
    }
    void showPopover(QPoint anchor) override {
        m_popover.show(anchor);
        watch(m_popover.window());
    }
    bool isPopoverVisible() const override { return m_popover.isVisible(); }
    void showPreferences() override {
        m_preferences.show();
        watch(m_preferences.window());
    }
    bool isAnyWindowVisible() const override {
        return m_popover.isVisible() ||
               (m_preferences.window() && m_preferences.window()->isVisible());
    }
    void setAllHiddenHandler(std::function<void()> handler) override {
        m_allHidden = std::move(handler);
    }

private:
    void watch(QQuickWindow* window) {
        if (!window || m_watched.contains(window))
            return;
        m_watched.insert(window);
        QObject::connect(window, &QWindow::visibleChanged, &m_host, [this](bool visible) {
            if (!visible && !isAnyWindowVisible() && m_allHidden)
                m_allHidden();
        });
    }

    std::function<void()> m_allHidden;
    QSet<QQuickWindow*> m_watched;
    ViewHost m_host;
    PopoverWindow m_popover;
    PreferencesWindow m_preferences;
};

} // namespace

extern "C" Q_DECL_EXPORT DashboardWindows*
mindmeter_create_dashboard_windows(const QVariantMap& popoverModels,
                                   const QVariantMap& preferencesModels, bool ordinaryWindow,
                                   QString* error) {
    // Once per process: the windows may be made again after being let go.
    static const bool fontLoaded = Symbols::loadFont();
    if (!fontLoaded && error)
        *error = QStringLiteral("the icon font (Material Icons) is not installed");
    return new QuickDashboardWindows(popoverModels, preferencesModels, ordinaryWindow);
}

extern "C" Q_DECL_EXPORT int mindmeter_run_snapshot(int argc, char* argv[], const char* directory,
                                                    MakeSnapshotModels makeModels) {
    return SnapshotMode::run(argc, argv, QString::fromLocal8Bit(directory), makeModels);
}
