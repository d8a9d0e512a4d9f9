#pragma once

#include "platform/Defaults.h"

#include <QDate>
#include <QList>
#include <QString>

// The applications the stored days show the user working in: each identifier once, with
// its latest name and its weighted tokens over the period, most tokens first. Sessions the
// browser, file and repository trackers add under their own identifiers are left out.
namespace RecentApplications {

struct Application {
    QString bundleID;
    QString name;
    qint64 weightedTokens = 0;
};

// The days from today back over `days` calendar days; days that do not decode are skipped.
QList<Application> read(const Defaults& defaults, const QDate& today, int days = 30);

} // namespace RecentApplications
