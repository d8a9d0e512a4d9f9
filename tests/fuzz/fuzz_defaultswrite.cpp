// `mindmeter defaults write KEY TYPE VALUE` takes any key and value from the user; the input is
// "KEY\nTYPE\nVALUE" (for -data-file the bytes on standard input). Nothing the command accepts
// may crash or stop the program when it reads the settings, today's day and the alerts.

#include "FuzzSupport.h"
#include "Sessions.h"

#include "app/DefaultsValue.h"
#include "model/SessionCodec.h"
#include "store/SqliteDefaults.h"

#include <cstdio>

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

    // Accepted: stored over a recorded morning, read back, then read the way the program does.
    const std::unique_ptr<SqliteDefaults> db = SqliteDefaults::open(QStringLiteral(":memory:"));
    const QDateTime minuteAgo = fuzzClock().now().addSecs(-60);
    db->setData(QStringLiteral("mindmeter.sessions.2026-05-30"),
                SessionCodec::encodeDay({makeSession(TokenType::reasoning, 8, minuteAgo),
                                         makeSession(TokenType::reasoning, 8, minuteAgo)}));
    switchEveryAlertOn(*db);
    if (!db->setValue(key, value))
        std::abort();
    const QVariant stored = db->value(key);
    if (stored.typeId() != value.typeId() || stored != value)
        std::abort();
    (void)AppPreferences::idleTimeout(*db);
    (void)AppPreferences::hasLaunched(*db);
    (void)AppPreferences::menuBarDisplay(*db);
    (void)AppPreferences::dailyGoal(*db);
    runStoreAndAlerts(*db, makeSession(TokenType::reasoning, 8, minuteAgo));
    return 0;
}
