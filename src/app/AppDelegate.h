#pragma once

#include "platform/NotificationSink.h"
#include "platform/StatusItem.h"

#include <QObject>
#include <QPoint>
#include <QSet>
#include <QTimer>
#include <QVariantMap>

#include <memory>
#include <optional>

class AppEvents;
class CategoriesModel;
class QtClipboard;
class Alerts;
class DayStore;
class DaySummary;
class DesktopOpener;
class DialogFileChooser;
class ExportManager;
class Sensors;
class LoginItem;
class OnboardingNote;
class DashboardWindows;
class PreferencesActions;
class PreferencesModel;
class SqliteDefaults;
class StatusPresenter;
class UpdateChecker;
class Clock;

// The tray application's composition root (named as the product names it).
//
// The running application: makes the day store's sensors, services and windows, puts the
// status item in the panel, and starts and stops everything in order.
class AppDelegate : public QObject {
    Q_OBJECT
public:
    struct Options {
        // Each sensor tick counts ten seconds whatever its real interval.
        int tickIntervalMs = 10000;
        int firstLaunchDelayMs = 500;
        double updateIntervalHours = 1.0;
        // Shown once as a desktop notification when started (a damaged data file set
        // aside, say).
        std::optional<NotificationRequest> startUpNotice;
        // How long the windows stay made after the last one closed; then they and their QML
        // engine are let go, and the heap they used is handed back.
        int windowsReleaseDelayMs = 30000;
    };

    AppDelegate(SqliteDefaults& defaults, const Clock& clock, Options options,
                QObject* parent = nullptr);
    ~AppDelegate() override;

    // Builds and starts everything. statusItem may be null when the desktop has no panel to
    // show it in: the dashboard then opens as an ordinary window. False, with the reason in
    // *error, when the desktop cannot be followed at all.
    bool applicationDidFinishLaunching(std::unique_ptr<StatusItem> statusItem, QString* error);
    // Stops the sensors in the order they were started; what they gathered is stored.
    void applicationWillTerminate();

    // The status item's menu as it stands now.
    QList<StatusMenuItem> menuItems();

    DayStore& store() const { return *m_store; }

public slots:
    void togglePopover(QPoint anchor = {});
    void showPopover();
    void showPreferences();
    void openUpdatePage();
    void copyExportSummary();
    void exportCSVFromMenu();
    void resetToday();
    void sendFeedback();
    void quit();
    void systemDidWake();

private:
    void refreshMenu();
    // The windows, made (and the UI library loaded) on first use; null if it cannot load.
    DashboardWindows* windows();
    void releaseWindows();

    SqliteDefaults& m_defaults;
    const Clock& m_clock;
    Options m_options;

    std::unique_ptr<DayStore> m_store;
    std::unique_ptr<DaySummary> m_summary; // what the views read of the store
    std::unique_ptr<Sensors> m_sensors;

    std::unique_ptr<Alerts> m_alerts;
    std::unique_ptr<DialogFileChooser> m_fileChooser;
    std::unique_ptr<QtClipboard> m_clipboard;
    std::unique_ptr<DesktopOpener> m_opener;
    std::unique_ptr<ExportManager> m_export;
    std::unique_ptr<UpdateChecker> m_updates;

    std::unique_ptr<PreferencesModel> m_preferences;
    std::unique_ptr<AppEvents> m_events;
    // The welcome page's last row; a desktop backend may update it.
    std::unique_ptr<OnboardingNote> m_onboardingNote;
    std::unique_ptr<LoginItem> m_loginItem;
    std::unique_ptr<PreferencesActions> m_preferencesActions;
    std::unique_ptr<CategoriesModel> m_categories;

    std::unique_ptr<StatusItem> m_statusItem;
    std::unique_ptr<StatusPresenter> m_presenter;
    QVariantMap m_popoverModels;
    QVariantMap m_preferencesModels;
    bool m_ordinaryWindow = false;
    std::unique_ptr<DashboardWindows> m_windows;
    // What was mapped before the windows were first made: what is not, they brought.
    std::optional<QSet<QByteArray>> m_filesBeforeWindows;
    bool m_windowsFailed = false;
    QTimer m_windowsRelease;
    bool m_started = false;
};
