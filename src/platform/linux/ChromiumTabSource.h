#pragma once

#include "FileAnswerCache.h"
#include "platform/BrowserTabSource.h"

#include <QDateTime>
#include <QStringList>

// The active tab of the Chromium family — Chromium, Google Chrome, Brave, Microsoft Edge and
// Vivaldi, as native packages, Flatpaks and Snaps — read from the session log the browser
// appends to while it runs: <profile>/Sessions/Session_<n> (before version 85, "Current
// Session" in the profile). The browser in front picks which browser's folders are read;
// its `Local State` names the profiles in use. Browsers that only keep an encrypted log
// (Sessions_Encrypted/, no plain Sessions/) give no answer. Reading one's own files needs no
// consent, so the permission probe does nothing.
class ChromiumTabSource final : public BrowserTabSource {
public:
    struct Limits {
        // Larger files are not read: a session log is rewritten whole long before this.
        qsizetype maxFileSize = 32 * 1024 * 1024;
        qsizetype maxLocalStateSize = 8 * 1024 * 1024;
    };

    // The user-data folders of one browser in every packaging.
    struct Browser {
        QString identifier; // the identifier the browser is tracked under (a prefix)
        QStringList userDataDirs;
    };

    ChromiumTabSource(QList<Browser> browsers, Limits limits);
    explicit ChromiumTabSource(QList<Browser> browsers = defaultBrowsers())
        : ChromiumTabSource(std::move(browsers), Limits{}) {}

    static QList<Browser> defaultBrowsers();
    static QList<Browser> browsersIn(const QString& home, const QString& configHome);

    bool canAsk(const RunningApp& app) const override;
    std::optional<QString> activeTabURL(const RunningApp& front) override;
    void probeForPermission(const QList<RunningApp>&) override {}

    // The session log `front` is writing, chosen in this order: a user-data folder locked
    // by `front`'s process, any locked folder, any folder; within each, the profiles
    // `Local State` names as open or last used (all profiles when it names none); the most
    // recently written log wins a tie. Empty when there is none.
    QString sessionFileFor(const RunningApp& front) const;

private:
    const Browser* browserFor(const QString& bundleID) const;
    QStringList profilesIn(const QString& userDataDir) const;

    QList<Browser> m_browsers;
    Limits m_limits;
    FileAnswerCache m_cache;
};
