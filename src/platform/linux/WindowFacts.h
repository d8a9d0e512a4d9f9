#pragma once

#include <QString>

// What a window says about the application behind it: an X11 window's properties, or what a
// Wayland compositor reports.
struct WindowFacts {
    QString gtkApplicationId; // _GTK_APPLICATION_ID
    QString kdeDesktopFile;   // _KDE_NET_WM_DESKTOP_FILE
    QString wmInstance;       // WM_CLASS, first string
    QString wmClass;          // WM_CLASS, second string
    qint64 pid = 0;           // _NET_WM_PID, 0 when unknown

    // A Wayland app_id: the desktop-entry id for applications that follow the convention,
    // otherwise a class name, as XWayland's WM_CLASS would be; both are looked up.
    static WindowFacts fromAppId(const QString& appId, qint64 pid = 0) {
        WindowFacts facts;
        facts.gtkApplicationId = appId;
        facts.wmClass = appId;
        facts.pid = pid;
        return facts;
    }
};
