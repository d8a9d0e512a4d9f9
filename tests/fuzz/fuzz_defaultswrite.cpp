// `mindmeter defaults write KEY TYPE VALUE` takes any key and any value from the user. The
// input is "KEY\nTYPE\nVALUE": the value as typed, or for -data-file the bytes read from
// standard input. Whatever the command accepts is stored and then read the way the program
// reads it (settings, today's day and recovery, the alerts); nothing it accepts may crash or
// stop the program.

#include "FakeClock.h"

#include "app/DefaultsValue.h"
#include "model/AppPreferences.h"
#include "model/SessionCodec.h"
#include "services/NotificationManager.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include "FuzzSupport.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    initializeFuzzApplication(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype first = input.indexOf('\n');
    const qsizetype second = first < 0 ? -1 : input.indexOf('\n', first + 1);
    if (second < 0)
        return 0;
    const QString key = QString::fromUtf8(input.left(first));
    const QString type = QString::fromUtf8(input.mid(first + 1, second - first - 1));
    QByteArray rest = input.mid(second + 1);
    // -data-file reads standard input here: a path from the input could name any file.
    const bool fromInput = type == QLatin1String("-data-file");
    const QString text = fromInput ? QStringLiteral("-") : QString::fromUtf8(rest);
    FILE* in = fmemopen(rest.data(), size_t(rest.size()), "r");
    if (!in)
        in = fopen("/dev/null", "r");

    QString error;
    const QVariant value = DefaultsValue::parse(type, text, in, &error);
    std::fclose(in);
    if (value.isValid() == !error.isEmpty())
        std::abort();
    if (!value.isValid() || key.isEmpty() || !DefaultsValue::rejectReason(key, value).isEmpty())
        return 0;

    // Accepted: store it over settings that switch every alert on and a recorded morning,
    // then read it back.
    static FakeClock clock(QDateTime(QDate(2026, 5, 30), QTime(15, 0), Qt::UTC));
    const auto session = [](qint64 raw) {
        return ActivitySession{QUuid::createUuid(),
                               QStringLiteral("com.apple.Terminal"),
                               QStringLiteral("Terminal"),
                               TokenType::reasoning,
                               Timestamp::fromDateTime(clock.now().addSecs(-60)),
                               Timestamp::fromDateTime(clock.now()),
                               raw};
    };
    const std::unique_ptr<SqliteDefaults> db = SqliteDefaults::open(QStringLiteral(":memory:"));
    db->setData(QStringLiteral("mindmeter.sessions.2026-05-30"),
                SessionCodec::encodeDay({session(8), session(8)}));
    db->setBool(AppPreferences::proAlertEnabled, true);
    db->setBool(AppPreferences::proTempAlertEnabled, true);
    db->setBool(AppPreferences::proEndOfDayEnabled, true);
    db->setBool(AppPreferences::proDailyGoalEnabled, true);
    if (!db->setValue(key, value))
        std::abort();
    const QVariant stored = db->value(key);
    if (stored.typeId() != value.typeId() || stored != value)
        std::abort();

    (void)AppPreferences::dailyBaseline(*db);
    (void)AppPreferences::idleTimeout(*db);
    (void)AppPreferences::hasLaunched(*db);
    (void)AppPreferences::menuBarDisplay(*db);
    (void)AppPreferences::alertThreshold(*db);
    (void)AppPreferences::tempAlertThreshold(*db);
    (void)AppPreferences::tempAlertMinutes(*db);
    (void)AppPreferences::endOfDayTimeSeconds(*db);
    (void)AppPreferences::dailyGoal(*db);

    DayStore store(*db, clock, DayStore::Options{0});
    store.addSession(session(8));
    store.recoverTokens(1800);
    QCoreApplication::sendPostedEvents(&store);
    store.waitForHistory();
    (void)store.contextSaturation();
    (void)store.temperature();

    NullSink sink;
    NotificationManager notifications(sink, *db, clock);
    notifications.checkThreshold(store.totalWeighted());
    notifications.checkTemperature(1.0);
    clock.advanceSeconds(3600);
    notifications.checkTemperature(1.0);
    clock.advanceSeconds(-3600);
    notifications.scheduleEndOfDayDigest(store.totalWeighted());
    return 0;
}
