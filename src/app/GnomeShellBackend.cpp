#include "GnomeShellBackend.h"

#include "platform/NotificationSink.h"
#include "platform/linux/GnomeShellWorkspace.h"
#include "platform/linux/MutterIdleSource.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcGnomeShell)

bool isGnomeShellWaylandSession() {
    const bool wayland = qEnvironmentVariable("XDG_SESSION_TYPE") == QLatin1String("wayland") ||
                         qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
    if (!wayland)
        return false;
    const QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.interface() &&
           bus.interface()->isServiceRegistered(QStringLiteral("org.gnome.Shell"));
}

bool openGnomeShellBackend(AppIdentityResolver& resolver, std::unique_ptr<Workspace>* workspace,
                           std::unique_ptr<IdleSource>* idle) {
    if (!isGnomeShellWaylandSession())
        return false;
    const QDBusConnection bus = QDBusConnection::sessionBus();
    QString error;
    std::unique_ptr<MutterIdleSource> mutterIdle = MutterIdleSource::open(bus, &error);
    if (!mutterIdle) {
        qCWarning(lcGnomeShell) << "GNOME Shell answers but" << error;
        return false;
    }
    *idle = std::move(mutterIdle);
    *workspace = std::make_unique<GnomeShellWorkspace>(bus, resolver);
    return true;
}

void announceMissingGnomeShellExtension(GnomeShellWorkspace& workspace, NotificationSink& sink) {
    const auto announce = [&sink] {
        NotificationRequest request;
        request.identifier = QStringLiteral("mindmeter.gnomeShellExtension");
        request.title = QStringLiteral("Mindmeter cannot see your applications");
        request.body = GnomeShellWorkspace::extensionMissingMessage();
        request.sound = false;
        sink.add(request);
    };
    if (!workspace.extensionAnswers())
        announce();
    QObject::connect(&workspace, &GnomeShellWorkspace::extensionAnswersChanged, &workspace,
                     [announce](bool answers) {
                         if (!answers)
                             announce();
                     });
}
