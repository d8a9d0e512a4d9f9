#pragma once

#include "AppIdentityResolver.h"

#include "platform/Workspace.h"

#include <QDBusConnection>
#include <QVariantMap>

class QDBusMessage;
class QDBusServiceWatcher;
class LogindWakeWatcher;

// The workspace of GNOME Shell on Wayland, where ordinary programs are shown no windows:
// Mindmeter's own shell extension publishes the front application and the open ones on the
// session bus and signals each change, so nothing is polled. While the extension does not
// answer (not installed, not enabled, or installed during this login) no application is in
// front and none is open: nothing is counted rather than something counted wrong. When it
// comes (the user enables it), it is followed from then on; when it goes (switched off, or
// the shell lost it), nothing is in front from that moment.
class GnomeShellWorkspace final : public Workspace {
    Q_OBJECT
public:
    inline static const QString extensionUuid = QStringLiteral("mindmeter@mindmeter.app");
    inline static const QString service = QStringLiteral("com.mindmeter.Mindmeter.Shell");
    inline static const QString path = QStringLiteral("/com/mindmeter/Mindmeter/Shell");

    GnomeShellWorkspace(const QDBusConnection& bus, AppIdentityResolver& resolver,
                        QObject* parent = nullptr);

    std::optional<RunningApp> frontmostApplication() const override;
    QList<RunningApp> runningApplications() const override;

    bool extensionAnswers() const { return m_answers; }
    // What the user is told while the extension does not answer, with the command that
    // turns it on.
    static QString extensionMissingMessage();

signals:
    void extensionAnswersChanged(bool answers);

private slots:
    void frontChanged(const QVariantMap& application);
    void openChanged(const QDBusMessage& message);
    void ownerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);

private:
    void fetch();
    void setAnswers(bool answers);
    std::optional<RunningApp> resolve(const QVariantMap& application) const;
    void setOpen(const QList<QVariantMap>& applications);

    QDBusConnection m_bus;
    AppIdentityResolver& m_resolver;
    QDBusServiceWatcher* m_watcher = nullptr;
    LogindWakeWatcher* m_wakeWatcher = nullptr;
    bool m_answers = false;
    std::optional<RunningApp> m_front;
    std::optional<RunningApp> m_lastActivated;
    QList<RunningApp> m_open;
};
