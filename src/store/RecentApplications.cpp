#include "RecentApplications.h"

#include "DayKeys.h"

#include "model/CheckedMath.h"
#include "model/SessionCodec.h"

#include <QHash>

#include <algorithm>

namespace RecentApplications {

namespace {

bool isTrackerIdentifier(const QString& id) {
    return id.startsWith(QLatin1String("browser.")) || id.startsWith(QLatin1String("spotlight.")) ||
           id.startsWith(QLatin1String("git."));
}

} // namespace

QList<Application> read(const Defaults& defaults, const QDate& today, int days) {
    QList<Application> apps;
    QHash<QString, qsizetype> index;
    // Newest day first, so the name kept is the latest one.
    for (int back = 0; back < days; ++back) {
        const std::optional<QByteArray> stored =
            defaults.data(DayKeys::sessions(DayKeys::dayText(today.addDays(-back))));
        if (!stored)
            continue;
        const std::optional<QList<ActivitySession>> sessions = SessionCodec::decodeDay(*stored);
        if (!sessions)
            continue;
        for (auto it = sessions->crbegin(); it != sessions->crend(); ++it) {
            if (isTrackerIdentifier(it->appBundleID))
                continue;
            auto found = index.constFind(it->appBundleID);
            if (found == index.constEnd()) {
                found = index.insert(it->appBundleID, apps.size());
                apps.append({it->appBundleID, it->appName, 0});
            }
            Application& app = apps[*found];
            app.weightedTokens = checkedAdd(app.weightedTokens, it->weightedTokens());
        }
    }
    std::stable_sort(apps.begin(), apps.end(), [](const Application& a, const Application& b) {
        return a.weightedTokens > b.weightedTokens;
    });
    return apps;
}

} // namespace RecentApplications
