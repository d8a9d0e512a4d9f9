#include "AppDelegate.h"

#include "Alerts.h"
#include "DashboardWindows.h"
#include "GnomeShellBackend.h"
#include "PreferencesActions.h"
#include "PrivateModules.h"
#include "Sensors.h"
#include "StatusMenu.h"
#include "StatusPresenter.h"

#include "model/AppEvents.h"
#include "model/AppPreferences.h"
#include "model/OnboardingNote.h"
#include "model/PreferencesModel.h"
#include "platform/linux/DesktopOpener.h"
#include "platform/linux/DialogFileChooser.h"
#include "platform/linux/GnomeShellWorkspace.h"
#include "platform/linux/ProcessMemory.h"
#include "platform/linux/QtClipboard.h"
#include "platform/linux/XdgAutostartLoginItem.h"
#include "sensing/ActivityMonitor.h"
#include "sensing/BrowserAITracker.h"
#include "sensing/SessionContextEngine.h"
#include "sensing/SpotlightMonitor.h"
#include "services/CategoriesModel.h"
#include "services/ExportManager.h"
#include "services/NotificationManager.h"
#include "services/UpdateChecker.h"
#include "store/DayStore.h"
#include "store/DaySummary.h"
#include "store/SqliteDefaults.h"

#include <QCoreApplication>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcApp, "mindmeter.app")

AppDelegate::AppDelegate(SqliteDefaults& defaults, const Clock& clock, Options options,
                         QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_clock(clock)
    , m_options(options) {
    m_windowsRelease.setSingleShot(true);
    m_windowsRelease.setInterval(m_options.windowsReleaseDelayMs);
    connect(&m_windowsRelease, &QTimer::timeout, this, &AppDelegate::releaseWindows);
}

AppDelegate::~AppDelegate() {
    applicationWillTerminate();
}

bool AppDelegate::applicationDidFinishLaunching(std::unique_ptr<StatusItem> statusItem,
                                                QString* error) {
    m_store = std::make_unique<DayStore>(m_defaults, m_clock);
    m_summary = std::make_unique<DaySummary>(*m_store);

    // The sensors around the store; they start once everything else is in place.
    m_sensors = std::make_unique<Sensors>(*m_store, m_defaults, m_clock);
    if (!m_sensors->create({m_options.tickIntervalMs}, error))
        return false;
    qCInfo(lcApp).noquote() << "following the desktop through" << m_sensors->backendDescription();
    for (const QString& note : m_sensors->backendNotes())
        qCInfo(lcApp).noquote() << note;

    // Services.
    m_alerts = std::make_unique<Alerts>(*m_store, m_sensors->context(), m_defaults, m_clock);
    if (m_options.startUpNotice)
        m_alerts->sink().add(*m_options.startUpNotice);
    m_fileChooser = std::make_unique<DialogFileChooser>();
    m_clipboard = std::make_unique<QtClipboard>();
    m_opener = std::make_unique<DesktopOpener>();
    m_export = std::make_unique<ExportManager>(*m_store, m_defaults, m_clock, *m_fileChooser,
                                               *m_clipboard);
    // The hourly check runs in a short-lived child (this program's own `update --check`), so
    // the network and TLS libraries are never loaded into this long-lived process for it;
    // only a download the user asks for loads them, and the app quits after it.
    UpdateChecker::Options updateOptions;
    updateOptions.checkProgram = QCoreApplication::applicationFilePath();
    updateOptions.checkArguments = {QStringLiteral("update"), QStringLiteral("--check"),
                                    QStringLiteral("--json")};
    updateOptions.makeFetcher = &PrivateModules::createHttpFetcher;
    m_updates = std::make_unique<UpdateChecker>(*m_opener, updateOptions);

    // Settings, announcements and launch at login.
    m_defaults.watchForExternalChanges();
    m_preferences = std::make_unique<PreferencesModel>(m_defaults);
    m_events = std::make_unique<AppEvents>();
    m_onboardingNote = std::make_unique<OnboardingNote>(OnboardingNote::forThisSession());
    if (auto* gnome = qobject_cast<GnomeShellWorkspace*>(&m_sensors->workspace())) {
        // Until the shell extension answers, the welcome page says how to turn it on.
        const auto tell = [note = m_onboardingNote.get()](bool answers) {
            note->setText(answers ? OnboardingNote::forSession(QString(), QString())
                                  : OnboardingNote::forSession(QStringLiteral("wayland"),
                                                               QStringLiteral("GNOME")));
        };
        tell(gnome->extensionAnswers());
        connect(gnome, &GnomeShellWorkspace::extensionAnswersChanged, m_onboardingNote.get(), tell);
        announceMissingGnomeShellExtension(*gnome, m_alerts->sink());
    }
    m_loginItem = std::make_unique<XdgAutostartLoginItem>(QCoreApplication::applicationFilePath());
    m_preferencesActions = std::make_unique<PreferencesActions>(*m_loginItem, [this] {
        m_alerts->manager().scheduleEndOfDayDigest(m_store->totalWeighted());
    });
    m_categories = std::make_unique<CategoriesModel>(m_defaults, m_clock);

    // The windows: their library, and Qt Quick with it, is loaded on first use.
    m_popoverModels = {
        {QStringLiteral("store"), QVariant::fromValue<QObject*>(m_summary.get())},
        {QStringLiteral("monitor"), QVariant::fromValue<QObject*>(&m_sensors->monitor())},
        {QStringLiteral("context"), QVariant::fromValue<QObject*>(&m_sensors->context())},
        {QStringLiteral("spotlight"), QVariant::fromValue<QObject*>(&m_sensors->spotlight())},
        {QStringLiteral("checker"), QVariant::fromValue<QObject*>(m_updates.get())},
        {QStringLiteral("exporter"), QVariant::fromValue<QObject*>(m_export.get())},
        {QStringLiteral("preferences"), QVariant::fromValue<QObject*>(m_preferences.get())},
        {QStringLiteral("events"), QVariant::fromValue<QObject*>(m_events.get())},
        {QStringLiteral("onboardingNote"), QVariant::fromValue<QObject*>(m_onboardingNote.get())},
    };
    m_preferencesModels = {
        {QStringLiteral("preferences"), QVariant::fromValue<QObject*>(m_preferences.get())},
        {QStringLiteral("actions"), QVariant::fromValue<QObject*>(m_preferencesActions.get())},
        {QStringLiteral("categories"), QVariant::fromValue<QObject*>(m_categories.get())},
    };
    m_ordinaryWindow = !statusItem;

    // The status item: title and icon follow the day; a click toggles the dashboard; the
    // menu asks for a fresh update check each time it opens.
    m_statusItem = std::move(statusItem);
    if (m_statusItem) {
        m_presenter = std::make_unique<StatusPresenter>(*m_statusItem, *m_store,
                                                        m_sensors->monitor(), *m_preferences);
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

    m_sensors->start();
    m_started = true;

    // Launch at login: set up on every start unless it was set up and switched off.
    if (m_loginItem->status() == LoginItem::Status::notRegistered) {
        QString loginError;
        if (!m_loginItem->registerItem(&loginError))
            qCInfo(lcApp) << "cannot set up launch at login:" << loginError;
    }

    m_updates->startPeriodicChecks(m_options.updateIntervalHours);

    if (!m_statusItem) {
        // Nothing to click in a panel: the dashboard is the window.
        showPopover();
    } else if (!AppPreferences::hasLaunched(m_defaults)) {
        QTimer::singleShot(m_options.firstLaunchDelayMs, this, [this] { togglePopover(); });
    }

    connect(m_events.get(), &AppEvents::openPreferences, this, &AppDelegate::showPreferences);
    connect(m_events.get(), &AppEvents::quitRequested, this, &AppDelegate::quit);
    connect(m_events.get(), &AppEvents::onboardingComplete, &m_sensors->browser(),
            &BrowserAITracker::onboardingCompleted);
    return true;
}

void AppDelegate::applicationWillTerminate() {
    if (!m_started)
        return;
    m_started = false;
    m_sensors->stop();
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

DashboardWindows* AppDelegate::windows() {
    if (!m_windows && !m_windowsFailed) {
        if (!m_filesBeforeWindows)
            m_filesBeforeWindows = ProcessMemory::mappedFiles();
        QString error;
        const CreateDashboardWindows create = PrivateModules::createDashboardWindows(&error);
        if (create)
            m_windows.reset(create(m_popoverModels, m_preferencesModels, m_ordinaryWindow, &error));
        if (!error.isEmpty())
            qCWarning(lcApp) << "the dashboard:" << error;
        m_windowsFailed = !m_windows;
        if (m_windows)
            m_windows->setAllHiddenHandler([this] { m_windowsRelease.start(); });
    }
    return m_windows.get();
}

void AppDelegate::releaseWindows() {
    // Made again, with a fresh QML engine, when next wanted. The libraries stay loaded.
    if (!m_windows || m_windows->isAnyWindowVisible())
        return;
    m_windows.reset();
    // The windows' libraries (Qt Quick, QML and what they load, the UI library, fonts) stay
    // loaded; their pages are let go and read in again if the windows come back.
    ProcessMemory::pageOutFilesExcept(m_filesBeforeWindows.value_or(QSet<QByteArray>()));
    ProcessMemory::handBack();
}

void AppDelegate::togglePopover(QPoint anchor) {
    if (DashboardWindows* w = windows())
        w->togglePopover(anchor);
}

void AppDelegate::showPopover() {
    if (DashboardWindows* w = windows())
        w->showPopover({});
}

void AppDelegate::showPreferences() {
    m_preferencesActions->syncLoginItem(); // shows what is really set up, each time
    m_categories->refresh();               // and the applications seen up to now
    if (DashboardWindows* w = windows())
        w->showPreferences();
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
    m_store->resetToday();
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
