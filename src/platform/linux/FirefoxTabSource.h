#pragma once

#include "FileAnswerCache.h"
#include "platform/BrowserTabSource.h"

#include <QDateTime>
#include <QStringList>

// The active tab of Firefox (also Firefox ESR and the Flatpak and Snap packagings), read
// from the session store Firefox keeps up to date while it runs:
// <profile>/sessionstore-backups/recovery.jsonlz4. Firefox rewrites it at most every 15
// seconds when something changed, so the address can trail the screen by that much.
// No consent is needed to read one's own files, so the permission probe does nothing.
class FirefoxTabSource final : public BrowserTabSource {
public:
    struct Limits {
        // Larger session files are not read: no real session comes near either size.
        qsizetype maxFileSize = 32 * 1024 * 1024;
        qsizetype maxContentSize = 160 * 1024 * 1024;
    };

    // `profileRoots`: folders holding a profiles.ini, such as ~/.mozilla/firefox.
    FirefoxTabSource(QStringList profileRoots, Limits limits);
    explicit FirefoxTabSource(QStringList profileRoots = defaultProfileRoots())
        : FirefoxTabSource(std::move(profileRoots), Limits{}) {}

    // Where Firefox keeps its profiles, for the packagings Debian users meet.
    static QStringList defaultProfileRoots();
    static QStringList profileRootsIn(const QString& home, const QString& configHome);
    static bool isFirefox(const QString& bundleID);

    bool canAsk(const RunningApp& app) const override;
    std::optional<QString> activeTabURL(const RunningApp& front) override;
    void probeForPermission(const QList<RunningApp>&) override {}

    // The session file of the profile `front` runs, chosen in this order: the profile
    // locked by `front`'s process, any locked (running) profile, any profile; the most
    // recently written file wins a tie. Empty when there is none.
    QString sessionFileFor(const RunningApp& front) const;

private:
    std::optional<QString> readSessionFile(const QString& path) const;

    QStringList m_roots;
    Limits m_limits;
    FileAnswerCache m_cache;
};
