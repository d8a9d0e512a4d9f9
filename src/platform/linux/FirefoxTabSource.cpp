#include "FirefoxTabSource.h"

#include "FirefoxSession.h"
#include "MozLz4.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <climits>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString sessionFilePath = QStringLiteral("sessionstore-backups/recovery.jsonlz4");

// Profile folders named by a profiles.ini: the [Install*] sections' Default (the path of
// the profile that installation starts with), then the [Profile*] sections' Path (relative
// to the root when IsRelative=1). In a [Profile*] section Default=1 is only a flag.
QStringList profilesIn(const QString& root) {
    QFile ini(root + QStringLiteral("/profiles.ini"));
    if (!ini.open(QIODevice::ReadOnly) || ini.size() > 1024 * 1024)
        return {};
    QStringList installs;
    QStringList profiles;
    QByteArray section;
    QString path;
    bool relative = true;
    auto flush = [&] {
        if (!path.isEmpty()) {
            const QString full = relative && QDir::isRelativePath(path) ? root + u'/' + path : path;
            QStringList& list = section.startsWith("Install") ? installs : profiles;
            if (!list.contains(full))
                list.append(full);
        }
        path.clear();
        relative = true;
    };
    const QList<QByteArray> lines = ini.readAll().split('\n');
    for (QByteArray line : lines) {
        line = line.trimmed();
        if (line.startsWith('[')) {
            flush();
            section = line.mid(1, line.indexOf(']') - 1);
        } else if (section.startsWith("Install") ? line.startsWith("Default=")
                                                 : line.startsWith("Path=")) {
            path = QString::fromUtf8(line.mid(line.indexOf('=') + 1));
            relative = section.startsWith("Install") || !QDir::isAbsolutePath(path);
        } else if (line.startsWith("IsRelative=")) {
            relative = line.mid(11) == "1";
        }
    }
    flush();
    for (const QString& p : std::as_const(profiles))
        if (!installs.contains(p))
            installs.append(p);
    return installs;
}

// The process holding a profile: Firefox keeps a symbolic link "lock" in the profile whose
// target ends in ":+PID" while it runs. 0 when the profile is not locked, -1 when it is
// locked by a process whose number cannot be read.
qint64 lockingProcess(const QString& profile) {
    char target[PATH_MAX];
    const ssize_t n = ::readlink(QFile::encodeName(profile + QStringLiteral("/lock")).constData(),
                                 target, sizeof target - 1);
    if (n <= 0)
        return 0;
    const QByteArray text(target, n);
    const qsizetype plus = text.lastIndexOf(":+");
    bool ok = false;
    const qint64 pid = plus >= 0 ? text.mid(plus + 2).toLongLong(&ok) : 0;
    return ok && pid > 0 ? pid : -1;
}

} // namespace

FirefoxTabSource::FirefoxTabSource(QStringList profileRoots, Limits limits)
    : m_roots(std::move(profileRoots))
    , m_limits(limits) {}

QStringList FirefoxTabSource::defaultProfileRoots() {
    QString configHome = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!QDir::isAbsolutePath(configHome))
        configHome = QDir::homePath() + QStringLiteral("/.config");
    return profileRootsIn(QDir::homePath(), configHome);
}

QStringList FirefoxTabSource::profileRootsIn(const QString& home, const QString& configHome) {
    const QString flatpak = home + QStringLiteral("/.var/app/org.mozilla.firefox");
    return {
        home + QStringLiteral("/.mozilla/firefox"),                     // Debian's packages
        configHome + QStringLiteral("/mozilla/firefox"),                // newer releases
        flatpak + QStringLiteral("/.mozilla/firefox"),                  // Flatpak
        flatpak + QStringLiteral("/config/mozilla/firefox"),            // Flatpak, newer releases
        home + QStringLiteral("/snap/firefox/common/.mozilla/firefox"), // Snap
    };
}

bool FirefoxTabSource::isFirefox(const QString& bundleID) {
    // Also "org.mozilla.firefox-esr" and the other editions that share the profile format.
    return bundleID.startsWith(QLatin1String("org.mozilla.firefox"));
}

bool FirefoxTabSource::canAsk(const RunningApp& app) const {
    return isFirefox(app.bundleID);
}

QString FirefoxTabSource::sessionFileFor(const RunningApp& front) const {
    // Rank: 2 = locked by the front process, 1 = locked, 0 = present.
    QString best;
    int bestRank = -1;
    QDateTime bestTime;
    for (const QString& root : m_roots) {
        for (const QString& profile : profilesIn(root)) {
            const QFileInfo file(profile + u'/' + sessionFilePath);
            if (!file.isFile())
                continue;
            const qint64 holder = lockingProcess(profile);
            const int rank = front.pid > 0 && holder == front.pid ? 2 : holder != 0 ? 1 : 0;
            const QDateTime written = file.lastModified();
            if (rank > bestRank || (rank == bestRank && written > bestTime)) {
                best = file.filePath();
                bestRank = rank;
                bestTime = written;
            }
        }
    }
    return best;
}

std::optional<QString> FirefoxTabSource::activeTabURL(const RunningApp& front) {
    if (!canAsk(front))
        return std::nullopt;
    const QString path = sessionFileFor(front);
    if (path.isEmpty())
        return std::nullopt;
    // Firefox replaces the file whole (a new inode) every time it writes it.
    return m_cache.answer(path, [this](const QString& file) { return readSessionFile(file); });
}

std::optional<QString> FirefoxTabSource::readSessionFile(const QString& path) const {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > m_limits.maxFileSize)
        return std::nullopt;
    // Measured again after reading: the file may have grown in between.
    const QByteArray bytes = file.readAll();
    if (bytes.size() > m_limits.maxFileSize)
        return std::nullopt;
    const std::optional<QByteArray> json = MozLz4::decompress(bytes, m_limits.maxContentSize);
    if (!json)
        return std::nullopt;
    return FirefoxSession::selectedTabURL(*json);
}
