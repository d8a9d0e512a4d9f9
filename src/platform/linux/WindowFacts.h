#pragma once

#include <QString>

// What an X11 window says about the application behind it.
struct WindowFacts {
    QString gtkApplicationId; // _GTK_APPLICATION_ID
    QString kdeDesktopFile;   // _KDE_NET_WM_DESKTOP_FILE
    QString wmInstance;       // WM_CLASS, first string
    QString wmClass;          // WM_CLASS, second string
    qint64 pid = 0;           // _NET_WM_PID, 0 when unknown
};
