#pragma once

#include "AppIdentityResolver.h"

#include "platform/Workspace.h"

#include <QDBusConnection>
#include <QTemporaryFile>

#include <memory>

// The workspace of KDE Plasma on Wayland, where KWin tells ordinary clients nothing about
// other windows. A small KWin script, loaded through org.kde.kwin.Scripting at start and
// unloaded at the end, reports each activated window (resource class and name, desktop
// file name, process id) and the open windows back to this object over the session bus.
class KWinScriptWorkspace final : public Workspace {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.mindmeter.KWinReport")
public:
    ~KWinScriptWorkspace() override;

    // Null, with the reason in *error, when no KWin on the session bus takes the script.
    static std::unique_ptr<KWinScriptWorkspace> open(AppIdentityResolver& resolver, QString* error);

    std::optional<RunningApp> frontmostApplication() const override;
    QList<RunningApp> runningApplications() const override;

public slots:
    // Called by the script. Fields as KWin names them; pid as decimal text.
    Q_SCRIPTABLE void activated(const QString& resourceClass, const QString& resourceName,
                                const QString& desktopFileName, const QString& pid);
    // One line per open window: the same four fields separated by tabs.
    Q_SCRIPTABLE void windows(const QString& lines);

private:
    KWinScriptWorkspace(QDBusConnection bus, AppIdentityResolver& resolver);
    bool load(QString* error);
    RunningApp resolve(const QString& resourceClass, const QString& resourceName,
                       const QString& desktopFileName, const QString& pid) const;

    QDBusConnection m_bus;
    AppIdentityResolver& m_resolver;
    QTemporaryFile m_script;
    QString m_pluginName;
    bool m_loaded = false;
    std::optional<RunningApp> m_front;
    std::optional<RunningApp> m_lastActivated;
    QList<RunningApp> m_running;
};
