#include "Sensors.h"

#include "DesktopBackend.h"

#include "platform/CompositeTabSource.h"
#include "platform/RecentIdleSource.h"
#include "platform/linux/AppAliases.h"
#include "platform/linux/AppIdentityResolver.h"
#include "platform/linux/ChromiumTabSource.h"
#include "platform/linux/DesktopEntryIndex.h"
#include "platform/linux/FirefoxTabSource.h"
#include "platform/linux/InotifyFileChangeIndex.h"
#include "platform/linux/ProcessMemory.h"
#include "sensing/ActivityMonitor.h"
#include "sensing/BrowserAITracker.h"
#include "sensing/SessionContextEngine.h"
#include "sensing/SpotlightMonitor.h"
#include "store/DayStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QTimer>

Sensors::Sensors(DayStore& store, Defaults& defaults, const Clock& clock, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_defaults(defaults)
    , m_clock(clock) {
    m_handBack.setSingleShot(true);
    m_handBack.setInterval(handBackDelayMs);
    connect(&m_handBack, &QTimer::timeout, this, &ProcessMemory::handBack);
}

Sensors::~Sensors() {
    stop();
    // The monitor must not outlive the index it asks.
    m_spotlight.reset();
    if (m_files)
        QMetaObject::invokeMethod(m_files, &QObject::deleteLater);
    m_fileThread.quit();
    m_fileThread.wait();
}

bool Sensors::create(Options options, QString* error) {
    m_entries = std::make_unique<DesktopEntryIndex>();
    m_resolver = std::make_unique<AppIdentityResolver>(
        *m_entries, AppAliases::builtIn(), QCoreApplication::applicationPid(),
        QString::fromLatin1(ActivityMonitor::ownBundleID));
    m_desktop = chooseDesktopBackend(*m_resolver, m_clock, error);
    if (!m_desktop)
        return false;
    Workspace& workspace = *m_desktop->workspace;
    // The monitor and the engine tick together: one question to the desktop serves both.
    m_idle = std::make_unique<RecentIdleSource>(*m_desktop->idle, m_clock,
                                                qMin(1000, options.tickIntervalMs / 2));
    IdleSource& idle = *m_idle;

    m_context = std::make_unique<SessionContextEngine>(
        workspace, idle, m_store, m_defaults, m_clock,
        SessionContextEngine::Options{options.tickIntervalMs, 30});
    const auto multiplier = [context = m_context.get()] { return context->multiplier(); };

    ActivityMonitor::Options monitorOptions;
    monitorOptions.tickIntervalMs = options.tickIntervalMs;
    m_monitor = std::make_unique<ActivityMonitor>(m_store, workspace, idle, m_defaults, m_clock,
                                                  multiplier, monitorOptions);
    connect(m_monitor.get(), &ActivityMonitor::breakStarted, &m_handBack,
            qOverload<>(&QTimer::start));

    // Saves under the home folder, seen as they happen; the walk of the folder tree runs on
    // the index's own thread so start-up does not wait for it.
    m_files = new InotifyFileChangeIndex(QDir::homePath(), SpotlightMonitor::skipParts(), m_clock);
    m_files->moveToThread(&m_fileThread);
    m_fileThread.setObjectName(QStringLiteral("file changes"));
    m_fileThread.start(QThread::LowPriority);
    // A shortened tick (for tests) shortens the scans and polls in proportion.
    const auto scaled = [&](int ms) {
        return int(qMax<qint64>(10, qint64(ms) * options.tickIntervalMs / 10000));
    };
    SpotlightMonitor::Options spotlightOptions;
    spotlightOptions.scanIntervalMs = scaled(spotlightOptions.scanIntervalMs);
    m_spotlight = std::make_unique<SpotlightMonitor>(m_store, *m_files, multiplier, m_clock,
                                                     spotlightOptions);

    m_firefox = std::make_unique<FirefoxTabSource>();
    m_chromium = std::make_unique<ChromiumTabSource>();
    m_tabs = std::make_unique<CompositeTabSource>(
        QList<BrowserTabSource*>{m_firefox.get(), m_chromium.get()});
    BrowserAITracker::Options browserOptions;
    browserOptions.pollIntervalMs = scaled(browserOptions.pollIntervalMs);
    m_browser = std::make_unique<BrowserAITracker>(m_store, workspace, *m_tabs, m_defaults, m_clock,
                                                   browserOptions);
    connect(&workspace, &Workspace::didWake, &m_store, &DayStore::handleWake);
    return true;
}

Workspace& Sensors::workspace() const {
    return *m_desktop->workspace;
}

QString Sensors::backendDescription() const {
    return m_desktop->description;
}

QStringList Sensors::backendNotes() const {
    return m_desktop->notes;
}

void Sensors::start() {
    if (m_running)
        return;
    m_running = true;
    QMetaObject::invokeMethod(
        m_files, [files = m_files] { files->start(); }, Qt::QueuedConnection);
    m_monitor->start();
    m_spotlight->start();
    m_context->start();
    m_browser->start();
    // Memory is handed back at the quiet moments: once start-up has settled, and once each
    // break has (the last session stored, the history refreshed). An idle wake-up costs more
    // the more pages the process keeps mapped, so through a break it keeps little more than
    // what its ticks run.
    m_handBack.start();
}

void Sensors::stop() {
    if (!m_running)
        return;
    m_running = false;
    m_handBack.stop();
    m_monitor->stop();
    m_spotlight->stop();
    m_context->stop();
    m_browser->stop();
    // The monitor's last session was posted to the store: record it now.
    QCoreApplication::sendPostedEvents(&m_store);
}
