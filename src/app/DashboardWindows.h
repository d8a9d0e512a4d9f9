#pragma once

#include <QPoint>
#include <QString>
#include <QVariantMap>

#include <functional>

// The dashboard and the preferences, as the tray app sees them. They live in the UI
// library (Qt Quick and the views), which is loaded the first time a window is wanted, so a
// tray app whose dashboard stays closed never pays for Qt Quick.
class DashboardWindows {
public:
    virtual ~DashboardWindows() = default;

    virtual void togglePopover(QPoint anchor) = 0;
    virtual void showPopover(QPoint anchor) = 0;
    virtual bool isPopoverVisible() const = 0;
    virtual void showPreferences() = 0;
    // Whether the dashboard or the preferences are on screen.
    virtual bool isAnyWindowVisible() const = 0;
    // Called each time the last of these windows on screen is hidden or closed.
    virtual void setAllHiddenHandler(std::function<void()> handler) = 0;
};

// What the snapshot mode shows: the objects the popover's views read (as popoverModels
// below) and the preferences' categories, over demo data. Made by the executable, which
// holds the core, so the UI library holds no core code of its own.
class SnapshotModels {
public:
    virtual ~SnapshotModels() = default;

    virtual QVariantMap popoverModels() const = 0;
    virtual QObject* categories() const = 0;
};

// What the UI library offers, by name.
extern "C" {
// popoverModels: store, monitor, context, spotlight, checker, exporter, preferences, events;
// preferencesModels: preferences, actions. ordinaryWindow: no panel to anchor the dashboard.
using CreateDashboardWindows = DashboardWindows* (*)(const QVariantMap& popoverModels,
                                                     const QVariantMap& preferencesModels,
                                                     bool ordinaryWindow, QString* error);
// Makes the snapshot's models; called once the application exists.
using MakeSnapshotModels = SnapshotModels* (*)();
// `mindmeter --snapshot DIR`, run inside an application the library makes itself.
using RunSnapshot = int (*)(int argc, char* argv[], const char* directory,
                            MakeSnapshotModels makeModels);
}
