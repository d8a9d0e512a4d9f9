// A stored day (the JSON array under "mindmeter.sessions.DAY") may come from another platform's
// copy or `mindmeter defaults write`: decoding it and everything built on it (the ledger, the
// history, the export, the alerts) must neither crash nor stop the program, whatever it holds.

#include "FuzzSupport.h"
#include "Sessions.h"

#include "model/SessionCodec.h"
#include "store/SqliteDefaults.h"

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

    // The same day as today and the two days before, with the smallest budget so every ratio is
    // as large as it gets.
    const std::unique_ptr<SqliteDefaults> db = SqliteDefaults::open(QStringLiteral(":memory:"));
    for (const char* day : {"2026-05-30", "2026-05-29", "2026-05-28"})
        db->setData(QStringLiteral("mindmeter.sessions.") + QLatin1String(day), json);
    db->setInteger(AppPreferences::dailyTokenBaseline, 1);
    db->setReal(AppPreferences::proEndOfDayTime, 86000);
    switchEveryAlertOn(*db);
    runStoreAndAlerts(*db, makeSession(TokenType::input, 1, fuzzClock().now().addSecs(-60)));
    return 0;
}
