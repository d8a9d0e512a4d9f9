#pragma once

#include <QDBusConnection>
#include <QString>
#include <QStringList>

// What can be seen of the panel that shows status items, and whether it draws an item's
// label (the Ayatana label) beside the icon. GNOME Shell's AppIndicator extension and the
// Ayatana/Unity indicator service draw it; the trays of Xfce, KDE Plasma, LXQt, waybar and
// snixembed do not, and show only the icon.
struct PanelHostFacts {
    // The process names (/proc/PID/comm) behind the watcher and the hosts' bus names.
    QStringList processes;
    // The bus names on the session bus that only a label-drawing host owns.
    bool indicatorServicePresent = false;
    // XDG_CURRENT_DESKTOP: only a hint, used when no process could be named.
    QString desktop;
};

namespace PanelHost {

// Reads the facts from the session bus (questions to the bus daemon only) and /proc.
PanelHostFacts observe(const QDBusConnection& bus, const QString& watcherService);

// Known label-drawing hosts say yes, known icon-only ones no; a host that cannot be named is
// taken to draw labels only on the desktops known to (GNOME, Unity). Otherwise no: the count
// then goes into the icon, where every host shows it.
bool drawsLabel(const PanelHostFacts& facts);

} // namespace PanelHost
