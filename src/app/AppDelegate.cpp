#include "AppDelegate.h"

#include "PopoverWindow.h"
#include "PreferencesActions.h"
#include "PreferencesWindow.h"
#include "StatusMenu.h"
#include "StatusPresenter.h"
#include "ViewHost.h"

#include "model/AppEvents.h"
#include "model/AppPreferences.h"
#include "model/PreferencesModel.h"
#include "platform/linux/AppAliases.h"
#include "platform/linux/AppIdentityResolver.h"
#include "platform/linux/ClipboardPasteboard.h"
#include "platform/linux/DBusNotificationSink.h"
#include "platform/linux/DesktopEntryIndex.h"
#include "platform/linux/DesktopOpener.h"
#include "platform/linux/DialogFileChooser.h"
#include "platform/linux/X11IdleSource.h"
#include "platform/linux/X11Workspace.h"
#include "platform/linux/XdgAutostartLoginItem.h"
#include "sensing/ActivityMonitor.h"
#include "sensing/SessionContextEngine.h"
#include "services/ExportManager.h"
#include "services/NotificationManager.h"
#include "services/UpdateChecker.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcApp, "mindmeter.app")

namespace {
const QString desktopId = QStringLiteral("com.mindmeter.Mindmeter");
} // namespace

AppDelegate::AppDelegate(SqliteDefaults& defaults, const Clock& clock, Options options,
                         QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_clock(clock)
    , m_options(options) {}

AppDelegate::~AppDelegate() {
    applicationWillTerminate();
    SessionContextEngine::setShared(nullptr);
}

bool AppDelegate::applicationDidFinishLaunching(std::unique_ptr<StatusItem> statusItem,
                                                QString* error) {
    m_store = std::make_unique<DayStore>(m_defaults, m_clock);

    // The desktop: which application is in front, and whether the user is there.
    m_entries = std::make_unique<DesktopEntryIndex>();
    m_resolver = std::make_unique<AppIdentityResolver>(
        *m_entries, AppAliases::builtIn(), QCoreApplication::applicationPid(),
        QString::fromLatin1(ActivityMonitor::ownBundleID));
    m_workspace = X11Workspace::open(*m_resolver, error);
    if (!m_workspace)
        return false;
    m_idle = X11IdleSource::open(error);
    if (!m_idle)
        return false;

    // Sensors, in the order they start.
    m_context = std::make_unique<SessionContextEngine>(
        *m_workspace, *m_idle, *m_store, m_defaults, m_clock,
        SessionContextEngine::Options{m_options.tickIntervalMs, 30});
    SessionContextEngine::setShared(m_context.get());
    ActivityMonitor::Options monitorOptions;
    monitorOptions.tickIntervalMs = m_options.tickIntervalMs;
    m_monitor = std::make_unique<ActivityMonitor>(
        *m_store, *m_workspace, *m_idle, m_defaults, m_clock,
        [context = m_context.get()] { return context->multiplier(); }, monitorOptions);

    // Services.
    DBusNotificationSink::Options sinkOptions;
    sinkOptions.appIcon = desktopId;
    sinkOptions.desktopEntry = desktopId;
    m_notificationSink = std::make_unique<DBusNotificationSink>(QDBusConnection::sessionBus(),
                                                                m_defaults, m_clock, sinkOptions);
    m_notifications =
        std::make_unique<NotificationManager>(*m_notificationSink, m_defaults, m_clock);
    m_notifications->attach(*m_store);
    connect(m_context.get(), &SessionContextEngine::temperatureCheckRequested,
            m_notifications.get(), &NotificationManager::checkTemperature);
    m_fileChooser = std::make_unique<DialogFileChooser>();
    m_pasteboard = std::make_unique<ClipboardPasteboard>();
    m_opener = std::make_unique<DesktopOpener>();
    m_export = std::make_unique<ExportManager>(*m_store, m_defaults, m_clock, *m_fileChooser,
                                               *m_pasteboard);
    m_updates = std::make_unique<UpdateChecker>(*m_opener);

    // Settings, announcements and launch at login.
    m_defaults.watchForExternalChanges();
    m_preferences = std::make_unique<PreferencesModel>(m_defaults);
    m_events = std::make_unique<AppEvents>();
    m_loginItem = std::make_unique<XdgAutostartLoginItem>(QCoreApplication::applicationFilePath());
    m_preferencesActions = std::make_unique<PreferencesActions>(*m_loginItem, [this] {
        m_notifications->scheduleEndOfDayDigest(m_store->totalWeighted());
    });

    // The windows; their QML is loaded on first use.
    m_views = std::make_unique<ViewHost>();
    const QVariantMap models{
        {QStringLiteral("store"), QVariant::fromValue(m_store.get())},
        {QStringLiteral("monitor"), QVariant::fromValue(m_monitor.get())},
        {QStringLiteral("context"), QVariant::fromValue(m_context.get())},
        {QStringLiteral("spotlight"), QVariant::fromValue<QObject*>(m_events.get())},
        {QStringLiteral("checker"), QVariant::fromValue(m_updates.get())},
        {QStringLiteral("exporter"), QVariant::fromValue(m_export.get())},
        {QStringLiteral("preferences"), QVariant::fromValue(m_preferences.get())},
        {QStringLiteral("events"), QVariant::fromValue(m_events.get())},
    };
    m_popover = std::make_unique<PopoverWindow>(*m_views, models,
                                                statusItem ? PopoverWindow::Style::popover
                                                           : PopoverWindow::Style::ordinaryWindow);
    m_preferencesWindow = std::make_unique<PreferencesWindow>(
        *m_views,
        QVariantMap{{QStringLiteral("preferences"), QVariant::fromValue(m_preferences.get())},
                    {QStringLiteral("actions"), QVariant::fromValue(m_preferencesActions.get())}});
    connect(m_preferencesWindow.get(), &PreferencesWindow::shown, m_preferencesActions.get(),
            &PreferencesActions::syncLoginItem);

    // The status item: title and icon follow the day; a click toggles the dashboard; the
    // menu asks for a fresh update check each time it opens.
    m_statusItem = std::move(statusItem);
    if (m_statusItem) {
        m_presenter =
            std::make_unique<StatusPresenter>(*m_statusItem, *m_store, *m_monitor, *m_preferences);
        connect(m_statusItem.get(), &StatusItem::activated, this,
                [this](QPoint at) { togglePopover(at); });
        connect(m_statusItem.get(), &StatusItem::menuAboutToShow, m_updates.get(),
                &UpdateChecker::checkForUpdates);
        connect(m_updates.get(), &UpdateChecker::updateAvailableChanged, this,
                &AppDelegate::refreshMenu);
        connect(m_updates.get(), &UpdateChecker::latestVersionChanged, this,
                &AppDelegate::refreshMenu);
        refreshMenu();
    }

    // Start the sensors in order.
    m_monitor->start();
    m_context->start();
    m_started = true;

    connect(m_workspace.get(), &Workspace::didWake, this, &AppDelegate::systemDidWake);

    // Launch at login: set up on every start unless it was set up and switched off.
    if (m_loginItem->status() == LoginItem::Status::notRegistered) {
        QString loginError;
        if (!m_loginItem->registerItem(&loginError))
            qCInfo(lcApp) << "cannot set up launch at login:" << loginError;
    }

    m_updates->startPeriodicChecks(m_options.updateIntervalHours);

    if (!m_statusItem) {
        // Nothing to click in a panel: the dashboard is the window.
        m_popover->show();
    } else if (!AppPreferences::hasLaunched(m_defaults)) {
        QTimer::singleShot(m_options.firstLaunchDelayMs, this, [this] { togglePopover(); });
    }

    connect(m_events.get(), &AppEvents::openPreferences, this, &AppDelegate::showPreferences);
    return true;
}

void AppDelegate::applicationWillTerminate() {
    if (!m_started)
        return;
    m_started = false;
    m_monitor->stop();
    m_context->stop();
    // The monitor's last session was posted to the store; store it before going.
    QCoreApplication::sendPostedEvents(m_store.get());
    m_store->waitForHistory();
}

QList<StatusMenuItem> AppDelegate::menuItems() {
    std::optional<QString> update;
    if (m_updates && m_updates->updateAvailable())
        update = m_updates->latestVersion();
    return StatusMenu::build(update,
                             {[this] { openUpdatePage(); }, [this] { togglePopover(); },
                              [this] { showPreferences(); }, [this] { copyExportSummary(); },
                              [this] { exportCSVFromMenu(); }, [this] { resetToday(); },
                              [this] { sendFeedback(); }, [this] { quit(); }});
}

void AppDelegate::refreshMenu() {
    if (m_statusItem)
        m_statusItem->setMenu(menuItems());
}

void AppDelegate::togglePopover(QPoint anchor) {
    m_popover->toggle(anchor);
}

void AppDelegate::showPreferences() {
    m_preferencesWindow->show();
}

void AppDelegate::openUpdatePage() {
    m_updates->downloadAndOpenUpdate();
}

void AppDelegate::copyExportSummary() {
    m_export->copyMarkdownSummary();
}

void AppDelegate::exportCSVFromMenu() {
    m_export->exportCSV();
}

void AppDelegate::resetToday() {
    m_store->resetForDebug();
}

void AppDelegate::sendFeedback() {
    const QUrl site = m_updates->vendorUrl();
    if (site.isEmpty())
        return;
    QUrl page = site;
    page.setPath(site.path().chopped(site.path().endsWith(u'/') ? 1 : 0) +
                 QStringLiteral("/feedback"));
    m_opener->open(page);
}

void AppDelegate::quit() {
    QCoreApplication::quit();
}

void AppDelegate::systemDidWake() {
    m_store->handleWake();
}
