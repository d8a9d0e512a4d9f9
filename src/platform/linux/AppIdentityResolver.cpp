#include "AppIdentityResolver.h"

#include <QFile>
#include <QRegularExpression>

namespace {

// Reads at most this much of a /proc file: they are tiny, and nothing there should be large.
constexpr qint64 maxProcRead = 64 * 1024;

QByteArray readSmallFile(const QString& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return f.read(maxProcRead);
}

} // namespace

AppIdentityResolver::AppIdentityResolver(DesktopEntryIndex& entries, const AppAliases& aliases,
                                         qint64 ownPid, QString ownIdentifier, QString procRoot)
    : m_entries(entries)
    , m_aliases(aliases)
    , m_ownPid(ownPid)
    , m_ownIdentifier(std::move(ownIdentifier))
    , m_procRoot(std::move(procRoot)) {}

QString AppIdentityResolver::sandboxId(qint64 pid) const {
    if (pid <= 0)
        return {};
    const QString proc = m_procRoot + u'/' + QString::number(pid);

    // Flatpak puts its metadata at the root of the sandbox.
    const QByteArray info = readSmallFile(proc + QStringLiteral("/root/.flatpak-info"));
    bool inApplication = false;
    for (const QByteArray& raw : info.split('\n')) {
        const QByteArray line = raw.trimmed();
        if (line.startsWith('['))
            inApplication = line == "[Application]";
        else if (inApplication && line.startsWith("name="))
            return QString::fromUtf8(line.mid(5)).trimmed();
    }

    // Both also name the application in the process's cgroup:
    // ".../app-flatpak-org.gimp.GIMP-1234.scope", ".../snap.firefox.firefox-….scope".
    const QString cgroup = QString::fromUtf8(readSmallFile(proc + QStringLiteral("/cgroup")));
    static const QRegularExpression flatpak(
        QStringLiteral(R"(app-flatpak-([A-Za-z0-9_.\-]+?)-\d+\.scope)"));
    static const QRegularExpression snap(QStringLiteral(
        R"(snap\.([a-z0-9\-]+)\.([A-Za-z0-9\-]+?)(?:-[0-9a-f]{8}[0-9a-f\-]*)?\.scope)"));
    if (const QRegularExpressionMatch m = flatpak.match(cgroup); m.hasMatch())
        return m.captured(1);
    if (const QRegularExpressionMatch m = snap.match(cgroup); m.hasMatch())
        return m.captured(1) + u'_' + m.captured(2); // the desktop id Snap installs
    return {};
}

RunningApp AppIdentityResolver::resolve(const WindowFacts& window) {
    RunningApp app;
    app.pid = window.pid;
    if (m_ownPid > 0 && window.pid == m_ownPid) {
        app.bundleID = m_ownIdentifier;
        app.localizedName = QStringLiteral("Mindmeter");
        return app;
    }

    // The names the window goes by, most reliable first.
    QString kdeId = window.kdeDesktopFile;
    if (kdeId.endsWith(QLatin1String(".desktop")))
        kdeId.chop(8);
    const QString sandbox = sandboxId(window.pid);
    const QStringList ids = {window.gtkApplicationId, kdeId, sandbox};

    std::optional<DesktopEntry> entry;
    for (const QString& id : ids)
        if ((entry = m_entries.byId(id)))
            break;
    if (!entry)
        entry = m_entries.byStartupWMClass(window.wmClass);
    if (!entry)
        entry = m_entries.byStartupWMClass(window.wmInstance);
    if (!entry)
        for (const QString& id : {window.wmClass, window.wmInstance})
            if ((entry = m_entries.byId(id)))
                break;

    QString desktopId = entry ? entry->id : QString();
    if (desktopId.isEmpty())
        for (const QString& id : {window.gtkApplicationId, kdeId, sandbox, window.wmClass.toLower(),
                                  window.wmInstance.toLower()})
            if (!id.isEmpty()) {
                desktopId = id;
                break;
            }

    std::optional<AppAliases::Alias> alias;
    for (const QString& name :
         {desktopId, window.gtkApplicationId, kdeId, sandbox, window.wmClass, window.wmInstance})
        if ((alias = m_aliases.find(name)))
            break;

    app.bundleID = alias ? alias->identifier : desktopId;
    if (entry && !entry->name.isEmpty())
        app.localizedName = entry->name;
    else if (alias)
        app.localizedName = alias->name;
    else
        app.localizedName = window.wmClass.isEmpty() ? desktopId : window.wmClass;
    return app;
}
