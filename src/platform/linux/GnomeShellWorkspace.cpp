#include "GnomeShellWorkspace.h"

#include "LogindWakeWatcher.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcGnomeShell, "mindmeter.gnomeshell")

namespace {

const QString interfaceName = QStringLiteral("com.mindmeter.Mindmeter.Shell");
// The shell answers at once; a stalled one must not hold up the start for long.
constexpr int callTimeoutMs = 3000;

QList<QVariantMap> applicationList(const QVariant& value) {
    QList<QVariantMap> list;
    if (value.canConvert<QDBusArgument>())
        value.value<QDBusArgument>() >> list;
    return list;
}

} // namespace

GnomeShellWorkspace::GnomeShellWorkspace(const QDBusConnection& bus, AppIdentityResolver& resolver,
                                         QObject* parent)
    : Workspace(parent)
    , m_bus(bus)
    , m_resolver(resolver) {
    m_bus.connect(service, path, interfaceName, QStringLiteral("FrontApplicationChanged"), this,
                  SLOT(frontChanged(QVariantMap)));
    m_bus.connect(service, path, interfaceName, QStringLiteral("OpenApplicationsChanged"), this,
                  SLOT(openChanged(QDBusMessage)));
    m_watcher =
        new QDBusServiceWatcher(service, m_bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            &GnomeShellWorkspace::ownerChanged);
    m_wakeWatcher = new LogindWakeWatcher(this);
    connect(m_wakeWatcher, &LogindWakeWatcher::didWake, this, &Workspace::didWake);
    // Whatever comes forward after a stretch with nothing in front is a new stay.
    connect(this, &Workspace::nothingInFront, this, [this] { m_lastActivated.reset(); });

    if (m_bus.interface() && m_bus.interface()->isServiceRegistered(service))
        fetch();
}

QString GnomeShellWorkspace::extensionMissingMessage() {
    return QStringLiteral("Mindmeter's GNOME Shell extension does not answer, so no application "
                          "can be seen in front and nothing is counted. Turn it on with "
                          "\"gnome-extensions enable %1\" (if it was installed during this "
                          "login, log out and in again first).")
        .arg(extensionUuid);
}

std::optional<RunningApp> GnomeShellWorkspace::frontmostApplication() const {
    return m_front;
}

QList<RunningApp> GnomeShellWorkspace::runningApplications() const {
    return m_open;
}

void GnomeShellWorkspace::fetch() {
    const auto call = [this](const char* method) {
        return m_bus.call(QDBusMessage::createMethodCall(service, path, interfaceName,
                                                         QString::fromLatin1(method)),
                          QDBus::Block, callTimeoutMs);
    };
    const QDBusMessage front = call("GetFrontApplication");
    const QDBusMessage open = call("GetOpenApplications");
    if (front.type() != QDBusMessage::ReplyMessage || open.type() != QDBusMessage::ReplyMessage) {
        qCWarning(lcGnomeShell) << "the GNOME Shell extension does not answer:"
                                << front.errorMessage();
        setAnswers(false);
        return;
    }
    setOpen(applicationList(open.arguments().value(0)));
    setAnswers(true);
    frontChanged(qdbus_cast<QVariantMap>(front.arguments().value(0)));
}

void GnomeShellWorkspace::setAnswers(bool answers) {
    if (!answers) {
        m_front.reset();
        m_open.clear();
    }
    if (answers == m_answers)
        return;
    m_answers = answers;
    // Without the extension nothing can be seen in front: the stay ends now, before anyone
    // hears that the extension went away.
    if (!answers)
        noWindowInFront(true);
    qCInfo(lcGnomeShell) << (answers ? "following GNOME Shell through Mindmeter's extension"
                                     : "Mindmeter's GNOME Shell extension went away");
    emit extensionAnswersChanged(answers);
}

void GnomeShellWorkspace::ownerChanged(const QString&, const QString&, const QString& newOwner) {
    if (newOwner.isEmpty())
        setAnswers(false);
    else
        fetch();
}

std::optional<RunningApp> GnomeShellWorkspace::resolve(const QVariantMap& application) const {
    WindowFacts facts;
    facts.gtkApplicationId = application.value(QStringLiteral("gtk-application-id")).toString();
    // The desktop entry the shell matched the window to, named as KDE names it.
    facts.kdeDesktopFile = application.value(QStringLiteral("desktop-id")).toString();
    // WM_CLASS for X11 windows; a Wayland window's app_id.
    facts.wmClass = application.value(QStringLiteral("wm-class")).toString();
    facts.wmInstance = application.value(QStringLiteral("wm-instance")).toString();
    facts.pid = application.value(QStringLiteral("pid")).toLongLong();
    if (facts.gtkApplicationId.isEmpty() && facts.kdeDesktopFile.isEmpty() &&
        facts.wmClass.isEmpty() && facts.wmInstance.isEmpty())
        return std::nullopt; // no window is focused
    return m_resolver.resolve(facts);
}

void GnomeShellWorkspace::frontChanged(const QVariantMap& application) {
    if (!m_answers)
        return;
    m_front = resolve(application);
    if (!m_front) {
        // The desktop itself, the overview, or nothing has the focus.
        noWindowInFront();
        return;
    }
    // Moving between two windows of one application is not an activation.
    if (m_lastActivated && m_lastActivated->bundleID == m_front->bundleID &&
        m_lastActivated->pid == m_front->pid)
        return;
    m_lastActivated = m_front;
    emit applicationActivated(*m_front);
}

void GnomeShellWorkspace::openChanged(const QDBusMessage& message) {
    if (m_answers)
        setOpen(applicationList(message.arguments().value(0)));
}

void GnomeShellWorkspace::setOpen(const QList<QVariantMap>& applications) {
    m_open.clear();
    for (const QVariantMap& application : applications)
        if (const std::optional<RunningApp> app = resolve(application);
            app && !m_open.contains(*app))
            m_open.append(*app);
}
