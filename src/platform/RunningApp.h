#pragma once

#include <QMetaType>
#include <QString>

// An application as the desktop sees it: its identifier (a reverse-DNS bundle identifier
// where one is known, otherwise the desktop-entry id; empty when it has none), the name
// shown to the user, and whether it is an ordinary windowed application.
struct RunningApp {
    QString bundleID;
    QString localizedName;
    bool isRegular = true;
    qint64 pid = 0;

    bool operator==(const RunningApp&) const = default;
};

Q_DECLARE_METATYPE(RunningApp)
