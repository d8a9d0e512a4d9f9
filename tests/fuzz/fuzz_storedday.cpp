// A stored day: the JSON array of sessions under "mindmeter.sessions.DAY". It comes from the
// database, from another platform's copy or from `mindmeter defaults write`, so decoding it,
// and everything built on it (today's ledger, the history, the export, the alerts), must
// neither crash nor stop the program, whatever it holds.

#include "FakeClock.h"

#include "model/AppPreferences.h"
#include "model/SessionCodec.h"
#include "services/ExportFormatter.h"
#include "services/NotificationManager.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include "FuzzSupport.h"

#include <QCoreApplication>

#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    initializeFuzzApplication(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray json(reinterpret_cast<const char*>(data), qsizetype(size));

    // What decodes encodes to a form that decodes to the same sessions.
    const auto day = SessionCodec::decodeDay(json);
    if (!day)
        return 0; // every reader treats it as an empty day (the seeds cover that path)
    const QByteArray encoded = SessionCodec::encodeDay(*day);
    const auto again = SessionCodec::decodeDay(encoded);
    if (!again || SessionCodec::encodeDay(*again) != encoded)
        std::abort();

    // The same day as today and as the two days before, read by the store, the history, the
    // export and the alerts, with the smallest budget so every ratio is as large as it gets.
    static FakeClock clock(QDateTime(QDate(2026, 5, 30), QTime(15, 0), Qt::UTC));
    const std::unique_ptr<SqliteDefaults> db = SqliteDefaults::open(QStringLiteral(":memory:"));
    for (const char* day : {"2026-05-30", "2026-05-29", "2026-05-28"})
        db->setData(QStringLiteral("mindmeter.sessions.") + QLatin1String(day), json);
    db->setInteger(AppPreferences::dailyTokenBaseline, 1);
    db->setBool(AppPreferences::proAlertEnabled, true);
    db->setBool(AppPreferences::proEndOfDayEnabled, true);
    db->setReal(AppPreferences::proEndOfDayTime, 86000);

    DayStore store(*db, clock, DayStore::Options{0});
    store.waitForHistory();
    store.recoverTokens(1800);
    QCoreApplication::sendPostedEvents(&store);
    store.waitForHistory();
    (void)store.temperature();
    (void)store.contextSaturation();
    (void)store.velocityLastHour();
    (void)store.hourlyBuckets(8);
    const ExportFormatter formatter(store, *db, clock);
    (void)formatter.csv();
    (void)formatter.markdownSummary(QLocale::c());
    NullSink sink;
    NotificationManager notifications(sink, *db, clock);
    notifications.checkThreshold(store.totalWeighted());
    notifications.checkTemperature(store.temperature());
    notifications.scheduleEndOfDayDigest(store.totalWeighted());
    return 0;
}
