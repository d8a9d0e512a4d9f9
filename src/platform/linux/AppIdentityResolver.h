#pragma once

#include "AppAliases.h"
#include "DesktopEntryIndex.h"
#include "WindowFacts.h"

#include "platform/RunningApp.h"

#include <QString>

// Turns what a window says about itself into an application identity: finds the desktop
// entry the way desktop shells do (GTK application id, KDE desktop file, Flatpak or Snap id
// of the process, WM_CLASS against StartupWMClass and desktop-entry ids), names the
// application by the entry's localized Name, and tracks it under its alias when the alias
// table knows it. Unknown applications keep their desktop id.
class AppIdentityResolver {
public:
    AppIdentityResolver(DesktopEntryIndex& entries, const AppAliases& aliases, qint64 ownPid,
                        QString ownIdentifier, QString procRoot = QStringLiteral("/proc"));

    RunningApp resolve(const WindowFacts& window);

    // The Flatpak application id or Snap desktop id of a process, empty when it has none.
    QString sandboxId(qint64 pid) const;

private:
    DesktopEntryIndex& m_entries;
    const AppAliases& m_aliases;
    qint64 m_ownPid;
    QString m_ownIdentifier;
    QString m_procRoot;
};
