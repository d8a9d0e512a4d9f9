#include "KWinScriptWorkspace.h"

#include "LogindWakeWatcher.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcKWin, "mindmeter.kwin")

namespace {

const QString kwinService = QStringLiteral("org.kde.KWin");
const QString objectPath = QStringLiteral("/com/mindmeter/KWinReport");

// A call to KWin's script loader; waits for the answer (only at start and at the end).
QDBusMessage callScripting(const QDBusConnection& bus, const QString& method,
                           const QVariantList& args = {}) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(kwinService, QStringLiteral("/Scripting"),
                                       QStringLiteral("org.kde.kwin.Scripting"), method);
    call.setArguments(args);
    return bus.call(call, QDBus::Block, 10000);
}

} // namespace

KWinScriptWorkspace::KWinScriptWorkspace(QDBusConnection bus, AppIdentityResolver& resolver)
    : m_bus(std::move(bus))
    , m_resolver(resolver)
    , m_script(QDir::tempPath() + QStringLiteral("/mindmeter-kwin-XXXXXX.js"))
    , m_pluginName(
          QStringLiteral("mindmeter-activity-%1").arg(QCoreApplication::applicationPid())) {
    auto* wake = new LogindWakeWatcher(this);
    connect(wake, &LogindWakeWatcher::didWake, this, &Workspace::didWake);
    // Whatever comes forward after a stretch with nothing in front is a new stay.
    connect(this, &Workspace::nothingInFront, this, [this] { m_lastActivated.reset(); });
}

KWinScriptWorkspace::~KWinScriptWorkspace() {
    if (m_loaded)
        callScripting(m_bus, QStringLiteral("unloadScript"), {m_pluginName});
    m_bus.unregisterObject(objectPath);
}

std::unique_ptr<KWinScriptWorkspace> KWinScriptWorkspace::open(AppIdentityResolver& resolver,
                                                               QString* error) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        *error = QStringLiteral("no session bus");
        return nullptr;
    }
    if (!bus.interface()->isServiceRegistered(kwinService)) {
        *error = QStringLiteral("no KWin on the session bus (org.kde.KWin)");
        return nullptr;
    }
    std::unique_ptr<KWinScriptWorkspace> workspace(new KWinScriptWorkspace(bus, resolver));
    if (!workspace->load(error))
        return nullptr;
    return workspace;
}

bool KWinScriptWorkspace::load(QString* error) {
    if (!m_bus.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots)) {
        *error = QStringLiteral("cannot offer %1 on the session bus").arg(objectPath);
        return false;
    }
    QFile source(QStringLiteral(":/mindmeter/kwin/activity-report.js"));
    if (!source.open(QIODevice::ReadOnly) || !m_script.open()) {
        *error = QStringLiteral("cannot write the KWin script");
        return false;
    }
    QByteArray text = source.readAll();
    text.replace("@SERVICE@", m_bus.baseService().toUtf8());
    text.replace("@PATH@", objectPath.toUtf8());
    m_script.write(text);
    m_script.close();

    // A script of an earlier process with this id would block the name.
    callScripting(m_bus, QStringLiteral("unloadScript"), {m_pluginName});
    const QDBusReply<int> id =
        callScripting(m_bus, QStringLiteral("loadScript"), {m_script.fileName(), m_pluginName});
    if (!id.isValid() || id.value() < 0) {
        *error =
            QStringLiteral("KWin did not load the script (%1)")
                .arg(id.isValid() ? QStringLiteral("id %1").arg(id.value()) : id.error().message());
        return false;
    }
    m_loaded = true;
    const QDBusReply<void> started = callScripting(m_bus, QStringLiteral("start"));
    if (!started.isValid()) {
        *error =
            QStringLiteral("KWin did not start the script (%1)").arg(started.error().message());
        return false;
    }
    return true;
}

RunningApp KWinScriptWorkspace::resolve(const QString& resourceClass, const QString& resourceName,
                                        const QString& desktopFileName, const QString& pid) const {
    WindowFacts facts;
    facts.kdeDesktopFile = desktopFileName;
    facts.wmClass = resourceClass;
    facts.wmInstance = resourceName;
    facts.pid = pid.toLongLong();
    return m_resolver.resolve(facts);
}

void KWinScriptWorkspace::activated(const QString& resourceClass, const QString& resourceName,
                                    const QString& desktopFileName, const QString& pid) {
    if (resourceClass.isEmpty() && desktopFileName.isEmpty()) {
        // No window is active: between two windows, or for good.
        m_front.reset();
        noWindowInFront();
        return;
    }
    const RunningApp app = resolve(resourceClass, resourceName, desktopFileName, pid);
    m_front = app;
    // Moving between two windows of one application is not an activation.
    if (m_lastActivated && m_lastActivated->bundleID == app.bundleID &&
        m_lastActivated->pid == app.pid)
        return;
    m_lastActivated = app;
    emit applicationActivated(app);
}

void KWinScriptWorkspace::windows(const QString& lines) {
    m_running.clear();
    for (const QString& line : lines.split(u'\n', Qt::SkipEmptyParts)) {
        const QStringList f = line.split(u'\t');
        if (f.size() < 4)
            continue;
        const RunningApp app = resolve(f[0], f[1], f[2], f[3]);
        if (!m_running.contains(app))
            m_running.append(app);
    }
}

std::optional<RunningApp> KWinScriptWorkspace::frontmostApplication() const {
    return m_front;
}

QList<RunningApp> KWinScriptWorkspace::runningApplications() const {
    return m_running;
}
