#include "ChromiumTabSource.h"

#include "SnssSession.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <climits>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// The process holding a user-data folder: the browser keeps a symbolic link
// "SingletonLock" there whose target is "<host>-<pid>" while it runs. 0 when the folder is
// not locked, -1 when the process number cannot be read.
qint64 lockingProcess(const QString& userDataDir) {
    char target[PATH_MAX];
    const ssize_t n =
        ::readlink(QFile::encodeName(userDataDir + QStringLiteral("/SingletonLock")).constData(),
                   target, sizeof target - 1);
    if (n <= 0)
        return 0;
    const QByteArray text(target, n);
    bool ok = false;
    const qint64 pid = text.mid(text.lastIndexOf('-') + 1).toLongLong(&ok);
    return ok && pid > 0 ? pid : -1;
}

// The newest plain session log of a profile, empty when it has none.
QFileInfo sessionLogOf(const QString& profile) {
    QFileInfo newest;
    const QFileInfoList logs =
        QDir(profile + QStringLiteral("/Sessions"))
            .entryInfoList({QStringLiteral("Session_*")}, QDir::Files, QDir::Time);
    if (!logs.isEmpty())
        newest = logs.first();
    const QFileInfo old(profile + QStringLiteral("/Current Session"));
    if (old.isFile() && (newest.filePath().isEmpty() || old.lastModified() > newest.lastModified()))
        newest = old;
    return newest;
}

} // namespace

ChromiumTabSource::ChromiumTabSource(QList<Browser> browsers, Limits limits)
    : m_browsers(std::move(browsers))
    , m_limits(limits) {}

QList<ChromiumTabSource::Browser> ChromiumTabSource::defaultBrowsers() {
    QString configHome = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!QDir::isAbsolutePath(configHome))
        configHome = QDir::homePath() + QStringLiteral("/.config");
    return browsersIn(QDir::homePath(), configHome);
}

QList<ChromiumTabSource::Browser> ChromiumTabSource::browsersIn(const QString& home,
                                                                const QString& configHome) {
    // Native: $XDG_CONFIG_HOME/<folder>; Flatpak: ~/.var/app/<id>/config/<folder>;
    // Snap: the snap's own home, ~/snap/<name>/common or current/.config.
    const auto dirs = [&](const QStringList& folders, const QString& flatpakId,
                          const QStringList& snapDirs) {
        QStringList result;
        for (const QString& folder : folders)
            result << configHome + u'/' + folder;
        if (!flatpakId.isEmpty())
            for (const QString& folder : folders)
                result << home + QStringLiteral("/.var/app/") + flatpakId +
                              QStringLiteral("/config/") + folder;
        for (const QString& snap : snapDirs)
            result << home + QStringLiteral("/snap/") + snap;
        return result;
    };
    return {
        {QStringLiteral("org.chromium.Chromium"),
         dirs({QStringLiteral("chromium")}, QStringLiteral("org.chromium.Chromium"),
              {QStringLiteral("chromium/common/chromium")})},
        {QStringLiteral("com.google.Chrome"),
         dirs({QStringLiteral("google-chrome"), QStringLiteral("google-chrome-beta"),
               QStringLiteral("google-chrome-unstable")},
              QStringLiteral("com.google.Chrome"), {})},
        {QStringLiteral("com.brave.Browser"),
         dirs({QStringLiteral("BraveSoftware/Brave-Browser"),
               QStringLiteral("BraveSoftware/Brave-Browser-Beta"),
               QStringLiteral("BraveSoftware/Brave-Browser-Nightly")},
              QStringLiteral("com.brave.Browser"),
              {QStringLiteral("brave/current/.config/BraveSoftware/Brave-Browser")})},
        {QStringLiteral("com.microsoft.edgemac"),
         dirs({QStringLiteral("microsoft-edge"), QStringLiteral("microsoft-edge-beta"),
               QStringLiteral("microsoft-edge-dev")},
              QStringLiteral("com.microsoft.Edge"), {})},
        {QStringLiteral("com.vivaldi.Vivaldi"),
         dirs({QStringLiteral("vivaldi"), QStringLiteral("vivaldi-snapshot")},
              QStringLiteral("com.vivaldi.Vivaldi"),
              {QStringLiteral("vivaldi/current/.config/vivaldi")})},
    };
}

const ChromiumTabSource::Browser* ChromiumTabSource::browserFor(const QString& bundleID) const {
    for (const Browser& b : m_browsers)
        if (!bundleID.isEmpty() && bundleID.startsWith(b.identifier, Qt::CaseInsensitive))
            return &b;
    return nullptr;
}

bool ChromiumTabSource::canAsk(const RunningApp& app) const {
    return browserFor(app.bundleID) != nullptr;
}

QStringList ChromiumTabSource::profilesIn(const QString& userDataDir) const {
    // Local State: profile.last_active_profiles (open at the last write) and
    // profile.last_used; every profile folder when it names none.
    QStringList names;
    QFile localState(userDataDir + QStringLiteral("/Local State"));
    if (localState.open(QIODevice::ReadOnly) && localState.size() <= m_limits.maxLocalStateSize) {
        const QJsonObject profile =
            QJsonDocument::fromJson(localState.read(m_limits.maxLocalStateSize))
                .object()
                .value(QLatin1String("profile"))
                .toObject();
        for (const QJsonValue& v : profile.value(QLatin1String("last_active_profiles")).toArray())
            names << v.toString();
        names << profile.value(QLatin1String("last_used")).toString();
    }
    QStringList profiles;
    for (const QString& name : std::as_const(names))
        // A name is a folder inside the user-data folder, never a path out of it.
        if (!name.isEmpty() && !name.contains(u'/') && name != QLatin1String("..") &&
            !profiles.contains(userDataDir + u'/' + name))
            profiles << userDataDir + u'/' + name;
    if (profiles.isEmpty())
        for (const QString& folder : QDir(userDataDir).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            profiles << userDataDir + u'/' + folder;
    return profiles;
}

QString ChromiumTabSource::sessionFileFor(const RunningApp& front) const {
    const Browser* browser = browserFor(front.bundleID);
    if (!browser)
        return {};
    // Rank: 2 = locked by the front process, 1 = locked, 0 = present.
    QString best;
    int bestRank = -1;
    QDateTime bestTime;
    for (const QString& dir : browser->userDataDirs) {
        if (!QFileInfo(dir).isDir())
            continue;
        const qint64 holder = lockingProcess(dir);
        const int rank = front.pid > 0 && holder == front.pid ? 2 : holder != 0 ? 1 : 0;
        if (rank < bestRank)
            continue;
        for (const QString& profile : profilesIn(dir)) {
            const QFileInfo log = sessionLogOf(profile);
            if (log.filePath().isEmpty())
                continue;
            const QDateTime written = log.lastModified();
            if (rank > bestRank || written > bestTime) {
                best = log.filePath();
                bestRank = rank;
                bestTime = written;
            }
        }
    }
    return best;
}

std::optional<QString> ChromiumTabSource::activeTabURL(const RunningApp& front) {
    const QString path = sessionFileFor(front);
    if (path.isEmpty())
        return std::nullopt;
    return m_cache.answer(path, [this](const QString& file) -> std::optional<QString> {
        QFile log(file);
        if (!log.open(QIODevice::ReadOnly) || log.size() > m_limits.maxFileSize)
            return std::nullopt;
        // Read at most the limit: the log may grow while it is read.
        return SnssSession::selectedTabURL(log.read(m_limits.maxFileSize));
    });
}
