#include "DesktopEntryIndex.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>

namespace {
// An application installed while we run shows up after a miss, at most this often.
constexpr qint64 rescanAfterMissSeconds = 60;
// Desktop entries are small; anything larger is not one.
constexpr qint64 maxEntryBytes = 256 * 1024;
} // namespace

DesktopEntryIndex::DesktopEntryIndex(QStringList dataDirs, QStringList languages)
    : m_dataDirs(std::move(dataDirs))
    , m_languages(std::move(languages)) {}

QStringList DesktopEntryIndex::defaultDataDirs() {
    QString home = qEnvironmentVariable("XDG_DATA_HOME");
    if (home.isEmpty())
        home = QDir::homePath() + QStringLiteral("/.local/share");
    QStringList dirs{home};
    QString system = qEnvironmentVariable("XDG_DATA_DIRS");
    if (system.isEmpty())
        system = QStringLiteral("/usr/local/share:/usr/share");
    dirs += system.split(u':', Qt::SkipEmptyParts);
    for (const QString& extra : {home + QStringLiteral("/flatpak/exports/share"),
                                 QStringLiteral("/var/lib/flatpak/exports/share"),
                                 QStringLiteral("/var/lib/snapd/desktop")})
        if (!dirs.contains(extra))
            dirs.append(extra);
    return dirs;
}

void DesktopEntryIndex::scanIfStale(bool missed) {
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (m_scannedAt.isValid() && (!missed || m_scannedAt.secsTo(now) < rescanAfterMissSeconds))
        return;
    m_scannedAt = now;
    m_byId.clear();
    m_byWMClass.clear();
    for (const QString& dataDir : m_dataDirs) {
        const QString root = dataDir + QStringLiteral("/applications");
        QDirIterator it(root, {QStringLiteral("*.desktop")}, QDir::Files | QDir::Readable,
                        QDirIterator::Subdirectories | QDirIterator::FollowSymlinks);
        while (it.hasNext()) {
            const QString path = it.next();
            QString id = QDir(root).relativeFilePath(path);
            id.chop(8); // ".desktop"
            id.replace(u'/', u'-');
            const QString key = id.toLower();
            if (m_byId.contains(key))
                continue; // shadowed by a more important folder
            QFile file(path);
            if (file.size() > maxEntryBytes || !file.open(QIODevice::ReadOnly))
                continue;
            std::optional<DesktopEntry> entry =
                DesktopEntry::parse(id, file.readAll(), m_languages);
            if (!entry)
                continue;
            m_byId.insert(key, *entry); // a hidden entry still shadows later ones
            if (!entry->hidden && !entry->startupWMClass.isEmpty())
                m_byWMClass.insert(entry->startupWMClass.toLower(), *entry);
        }
    }
}

std::optional<DesktopEntry> DesktopEntryIndex::byId(const QString& id) {
    if (id.isEmpty())
        return std::nullopt;
    for (bool missed : {false, true}) {
        scanIfStale(missed);
        const auto it = m_byId.constFind(id.toLower());
        if (it != m_byId.constEnd())
            return it->hidden ? std::nullopt : std::optional<DesktopEntry>(*it);
    }
    return std::nullopt;
}

std::optional<DesktopEntry> DesktopEntryIndex::byStartupWMClass(const QString& wmClass) {
    if (wmClass.isEmpty())
        return std::nullopt;
    scanIfStale(false);
    const auto it = m_byWMClass.constFind(wmClass.toLower());
    if (it != m_byWMClass.constEnd())
        return *it;
    return std::nullopt;
}
