#pragma once

#include "FakeClock.h"

#include "model/AppPreferences.h"
#include "platform/NotificationSink.h"
#include "services/ExportFormatter.h"
#include "services/NotificationManager.h"
#include "store/DayStore.h"

#include <QCoreApplication>

#include <cstdlib>

// What the fuzz targets that run the store and the alerts share: an application in a fixed time
// zone, a fixed afternoon, and one pass of everything that reads a day and the settings.
class NullSink final : public NotificationSink {
public:
    void requestAuthorization(std::function<void(bool)> completion) override { completion(true); }
    void add(const NotificationRequest&) override {}
    void removePending(const QStringList&) override {}
};

inline void initializeFuzzApplication(int* argc, char*** argv) {
    setenv("TZ", "UTC", 1);
    static QCoreApplication app(*argc, *argv);
}

inline FakeClock& fuzzClock() {
    static FakeClock clock(QDateTime(QDate(2026, 5, 30), QTime(15, 0), Qt::UTC));
    return clock;
}

inline void switchEveryAlertOn(Defaults& db) {
    for (const QString& key :
         {AppPreferences::proAlertEnabled, AppPreferences::proTempAlertEnabled,
          AppPreferences::proEndOfDayEnabled, AppPreferences::proDailyGoalEnabled})
        db.setBool(key, true);
}

// Today's store over db records a session and a break; the history, the export and every alert
// then read what it holds.
inline void runStoreAndAlerts(Defaults& db, const ActivitySession& session) {
    FakeClock& clock = fuzzClock();
    DayStore store(db, clock, DayStore::Options{0});
    store.waitForHistory();
    store.addSession(session);
    store.recoverTokens(1800);
    QCoreApplication::sendPostedEvents(&store);
    store.waitForHistory();
    (void)store.velocityLastHour();
    (void)store.hourlyBuckets(8);
    const ExportFormatter formatter(store, db, clock);
    (void)formatter.csv();
    (void)formatter.markdownSummary(QLocale::c());
    NullSink sink;
    NotificationManager notifications(sink, db, clock);
    notifications.checkThreshold(store.totalWeighted());
    notifications.checkTemperature(store.temperature());
    notifications.checkTemperature(1.0);
    clock.advanceSeconds(3600); // past any stretch the settings ask for
    notifications.checkTemperature(1.0);
    clock.advanceSeconds(-3600);
    notifications.scheduleEndOfDayDigest(store.totalWeighted());
}
