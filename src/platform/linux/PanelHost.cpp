#include "PanelHost.h"

#include <QDBusConnectionInterface>
#include <QFile>

namespace {

// Process names as the kernel keeps them (at most 15 characters).
const QStringList labelDrawers = {
    QStringLiteral("gnome-shell"),
    QStringLiteral("ayatana-indica"),  // ayatana-indicator-application-service
    QStringLiteral("indicator-appli"), // indicator-application-service (Unity)
};

QString processName(const QDBusConnection& bus, const QString& service) {
    const QDBusReply<uint> pid = bus.interface()->servicePid(service);
    if (!pid.isValid() || pid.value() == 0)
        return {};
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid.value()));
    if (!comm.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLocal8Bit(comm.readAll()).trimmed();
}

} // namespace

namespace PanelHost {

PanelHostFacts observe(const QDBusConnection& bus, const QString& watcherService) {
    PanelHostFacts facts;
    facts.desktop = qEnvironmentVariable("XDG_CURRENT_DESKTOP");
    if (!bus.isConnected() || !bus.interface())
        return facts;
    const QDBusReply<QStringList> names = bus.interface()->registeredServiceNames();
    QStringList owners{watcherService};
    for (const QString& name : names.value()) {
        if (name.startsWith(QLatin1String("org.kde.StatusNotifierHost")))
            owners << name;
        if (name == QLatin1String("com.canonical.indicator.application") ||
            name == QLatin1String("org.ayatana.indicator.application"))
            facts.indicatorServicePresent = true;
    }
    for (const QString& owner : owners) {
        const QString name = processName(bus, owner);
        if (!name.isEmpty() && !facts.processes.contains(name))
            facts.processes << name;
    }
    return facts;
}

bool drawsLabel(const PanelHostFacts& facts) {
    if (facts.indicatorServicePresent)
        return true;
    for (const QString& process : facts.processes)
        for (const QString& drawer : labelDrawers)
            if (process.startsWith(drawer))
                return true;
    if (!facts.processes.isEmpty())
        return false;
    for (const QString& desktop : facts.desktop.split(QLatin1Char(':'), Qt::SkipEmptyParts))
        if (desktop.compare(QLatin1String("GNOME"), Qt::CaseInsensitive) == 0 ||
            desktop.compare(QLatin1String("Unity"), Qt::CaseInsensitive) == 0)
            return true;
    return false;
}

} // namespace PanelHost
