#pragma once

#include "DesktopEntry.h"

#include <QDateTime>
#include <QHash>
#include <QStringList>

#include <optional>

// The desktop entries installed for the user, found the way desktop shells find them: in
// applications/ below $XDG_DATA_HOME and each of $XDG_DATA_DIRS (plus the Flatpak and Snap
// export folders), earlier folders shadowing later ones.
class DesktopEntryIndex {
public:
    // dataDirs: folders whose applications/ subfolders are searched, most important first.
    explicit DesktopEntryIndex(QStringList dataDirs = defaultDataDirs(),
                               QStringList languages = DesktopEntry::userLanguages());

    // The entry with this desktop id (case-insensitive).
    std::optional<DesktopEntry> byId(const QString& id);
    // The entry whose StartupWMClass equals wmClass (case-insensitive).
    std::optional<DesktopEntry> byStartupWMClass(const QString& wmClass);

    static QStringList defaultDataDirs();

private:
    void scanIfStale(bool missed);

    QStringList m_dataDirs;
    QStringList m_languages;
    QHash<QString, DesktopEntry> m_byId;      // lower-cased id
    QHash<QString, DesktopEntry> m_byWMClass; // lower-cased StartupWMClass
    QDateTime m_scannedAt;
};
