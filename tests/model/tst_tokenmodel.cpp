#include "model/ActivitySession.h"
#include "model/AppCategory.h"
#include "model/CategoryRules.h"
#include "model/Format.h"
#include "model/SessionCodec.h"

#include <QTest>

#include <set>

class TokenModelTest : public QObject {
    Q_OBJECT
private slots:
    void lookup_data();
    void lookup();
    void userRules_data();
    void userRules();
    void everyPrefixFindsItsOwnCategory();
    void weightingTruncates();
    void formatK_data();
    void formatK();
    void jsonRoundTrip();
    void encoderWritesThePlatformForm();
    void rejectsMalformedDays_data();
    void rejectsMalformedDays();
};

void TokenModelTest::lookup_data() {
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("name");
    // The row's tag is the identifier looked up ("-" for none).
    for (const auto& [id, name] : std::initializer_list<std::pair<const char*, const char*>>{
             {"com.todesktop.230313mzl4w4u92", "AI Tool"}, // the specific entry wins
             {"com.todesktop.other", "Code Editor"},
             {"COM.APPLE.SAFARI", "Browser"}, // case-insensitive
             {"com.notion.notion-ai.helper", "AI Tool"},
             {"claude-desktop", "AI Tool"}, // a prefix without a dot
             {"com.jetbrains.toolbox", "Terminal"},
             {"com.microsoft.teams2", "Messaging"}, // over "teams"
             {"com.linearity.curve", "Task Manager"},
             {"", "Other"},
             {"com.apple", "Other"}}) // shorter than any prefix
        QTest::newRow(*id ? id : "-") << QString(id) << QString(name);
}

void TokenModelTest::lookup() {
    QFETCH(QString, id);
    QFETCH(QString, name);
    QCOMPARE(category(id).displayName, name);
}

void TokenModelTest::userRules_data() {
    QTest::addColumn<QByteArray>("rules");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("name");
    QTest::addColumn<qint64>("customRate"); // for a rule of a type and a rate of its own
    const QByteArray kate = R"([{"app": "org.kde", "category": "Email"},
                                {"app": "ORG.KDE.kate", "category": "writing"}])";
    QTest::newRow("no rules") << QByteArray("[]") << "com.apple.Safari"
                              << "Browser" << 0ll;
    QTest::newRow("rule over the registry")
        << QByteArray(R"([{"app": "com.apple.Safari", "category": "Reading"}])")
        << "com.apple.Safari.x"
        << "Reading" << 0ll;
    QTest::newRow("short rule over a long registry prefix")
        << QByteArray(R"([{"app": "com", "category": "Podcast"}])") << "com.openai.chat"
        << "Podcast" << 0ll;
    QTest::newRow("longest rule, any case") << kate << "org.kde.Kate"
                                            << "Writing" << 0ll;
    QTest::newRow("shorter rule") << kate << "org.kde.dolphin"
                                  << "Email" << 0ll;
    QTest::newRow("no rule matches") << kate << "org.gnome.gedit"
                                     << "Other" << 0ll;
    QTest::newRow("type and rate")
        << QByteArray(R"([{"app": "org.example.ide", "type": "reasoning", "rate": 1000}])")
        << "org.example.ide"
        << "Custom" << 1000ll;
    QTest::newRow("a site rule is not an application rule")
        << QByteArray(R"([{"site": "org.kde.kate", "category": "Writing"}])") << "org.kde.kate"
        << "Other" << 0ll;
    // Any entry that is not valid voids the whole list: the registry applies.
    const char* const unreadable[] = {
        "not json",
        R"({"app": "org.kde.kate", "category": "Writing"})",
        R"([{"app": "org.kde.kate", "category": "Writing"}, {"app": "x", "category": "Other"}])",
        R"([{"app": "org.kde.kate", "type": "reasoning", "rate": 0}])",
        R"([{"app": "org.kde.kate", "type": "reasoning", "rate": 1001}])",
        R"([{"app": "org.kde.kate", "type": "reasoning", "rate": 2.5}])",
        R"([{"app": "org.kde.kate", "type": "thinking", "rate": 20}])",
        R"([{"app": "org.kde.kate", "category": "Writing", "rate": 20}])",
        R"([{"app": "org.kde.kate", "site": "kate.org", "category": "Writing"}])",
        R"([{"app": "org.kde.kate"}])",
    };
    for (const char* json : unreadable)
        QTest::newRow(json) << QByteArray(json) << "org.kde.kate"
                            << "unreadable" << 0ll;
}

void TokenModelTest::userRules() {
    QFETCH(QByteArray, rules);
    QFETCH(QString, id);
    QFETCH(QString, name);
    QFETCH(qint64, customRate);
    const std::optional<QList<CategoryRule>> decoded = CategoryRules::decode(rules);
    QCOMPARE(!decoded, name == "unreadable");
    if (!decoded)
        return;
    // What is stored decodes to the same rules again.
    QCOMPARE(CategoryRules::decode(CategoryRules::encode(*decoded))->size(), decoded->size());
    const AppCategory found = CategoryRules(*decoded).categoryFor(id);
    QCOMPARE(found.displayName, name);
    const AppCategory* registered = CategoryRules::registryCategory(name);
    QCOMPARE(found.tokensPerMinute, registered        ? registered->tokensPerMinute
                                    : name == "Other" ? 8
                                                      : customRate);
}

void TokenModelTest::everyPrefixFindsItsOwnCategory() {
    // Each prefix, looked up as an identifier, must land in its own category unless a longer
    // prefix of another category also matches it. This catches a lost or misfiled prefix.
    std::set<QString> seen;
    for (const AppCategory& c : appCategoryRegistry()) {
        for (const QString& prefix : c.bundleIDPrefixes) {
            QVERIFY2(seen.insert(prefix.toLower()).second, qPrintable("duplicate " + prefix));
            const AppCategory found = category(prefix + ".x");
            bool shadowed = false;
            for (const AppCategory& other : appCategoryRegistry())
                for (const QString& p : other.bundleIDPrefixes)
                    shadowed |= p.size() > prefix.size() &&
                                (prefix + ".x").toLower().startsWith(p.toLower());
            if (!shadowed)
                QCOMPARE(found.displayName, c.displayName);
        }
    }
}

void TokenModelTest::weightingTruncates() {
    QCOMPARE(ActivitySession::weighted(-3, TokenType::ai), std::optional<qint64>(-7)); // not -8
    // The edges of the 64-bit range: representable products pass, larger ones do not.
    QVERIFY(ActivitySession::weighted(qint64(1) << 61, TokenType::output).has_value());
    QVERIFY(!ActivitySession::weighted(qint64(1) << 62, TokenType::output).has_value());
    QVERIFY(!ActivitySession::weighted(std::numeric_limits<qint64>::max(), TokenType::input));
    QCOMPARE(ActivitySession::weighted(std::numeric_limits<qint64>::min(), TokenType::input),
             std::optional<qint64>(std::numeric_limits<qint64>::min()));
}

void TokenModelTest::formatK_data() {
    QTest::addColumn<qint64>("n");
    QTest::addColumn<QString>("text");
    QTest::newRow("zero") << qint64(0) << "0";
    QTest::newRow("below") << qint64(999) << "999";
    QTest::newRow("thousand") << qint64(1000) << "1.0k";
    QTest::newRow("rounds") << qint64(12345) << "12.3k";
    QTest::newRow("rounds up") << qint64(12960) << "13.0k";
    // As C's printf: an exact half rounds to even, a binary value above the half rounds up.
    QTest::newRow("half to even") << qint64(1250) << "1.2k";
    QTest::newRow("half, binary above") << qint64(1350) << "1.4k";
    QTest::newRow("half, odd") << qint64(1750) << "1.8k";
    QTest::newRow("negative plain") << qint64(-5000) << "-5000";
    QTest::newRow("huge") << qint64(25000000) << "25000.0k";
}

void TokenModelTest::formatK() {
    QFETCH(qint64, n);
    QFETCH(QString, text);
    QCOMPARE(::formatK(n), text);
}

void TokenModelTest::jsonRoundTrip() {
    const QList<ActivitySession> day = {
        {QUuid::createUuid(),
         "com.apple.Terminal",
         "Terminal \"quoted\" / \\ \n\t\x01 ünï",
         TokenType::reasoning,
         {801792000.123456789},
         {801792060.5},
         42},
        {QUuid::createUuid(), "claude", "Claude", TokenType::ai, {-12.5}, {0}, 0},
        {QUuid::createUuid(),
         "",
         "",
         TokenType::input,
         {1e9},
         {1e9 + 1e-6},
         -SessionCodec::maxDayTokens / 2}, // large and negative, within what a day may hold
    };
    const std::optional<QList<ActivitySession>> back =
        SessionCodec::decodeDay(SessionCodec::encodeDay(day));
    QVERIFY(back.has_value());
    QCOMPARE(*back, day); // doubles compare exactly: nothing is lost on the way
    QCOMPARE(SessionCodec::decodeDay("[]"),
             std::optional<QList<ActivitySession>>(QList<ActivitySession>{}));
}

void TokenModelTest::encoderWritesThePlatformForm() {
    const QUuid id("{0f8fad5b-d9cb-469f-a165-70867728950e}");
    const ActivitySession s{id, "com.a/b", "N", TokenType::output, {801792000.0}, {801792060.5}, 7};
    const QByteArray json = SessionCodec::encodeSession(s);
    QCOMPARE(json, QByteArray("{\"id\":\"0F8FAD5B-D9CB-469F-A165-70867728950E\","
                              "\"appBundleID\":\"com.a\\/b\",\"appName\":\"N\","
                              "\"tokenType\":\"output\",\"startTime\":801792000,"
                              "\"endTime\":801792060.5,\"rawTokens\":7}"));
}

void TokenModelTest::rejectsMalformedDays_data() {
    QTest::addColumn<QByteArray>("json");
    const QByteArray ok =
        R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","appBundleID":"a",)"
        R"("appName":"b","tokenType":"input","startTime":1,"endTime":2,"rawTokens":3})";
    QVERIFY(SessionCodec::decodeDay("[" + ok + "]").has_value()); // the base case decodes
    auto with = [&](const char* from, const char* to) {
        QByteArray j = ok;
        return "[" + j.replace(from, to) + "]";
    };
    QTest::newRow("capitalised type") << with("\"input\"", "\"Reasoning\"");
    QTest::newRow("missing key") << with("\"appName\":\"b\",", "");
    QTest::newRow("number as string") << with("\"rawTokens\":3", "\"rawTokens\":\"3\"");
    QTest::newRow("fractional count") << with("\"rawTokens\":3", "\"rawTokens\":3.5");
    QTest::newRow("count beyond 64 bits") << with("\"rawTokens\":3", "\"rawTokens\":1e30");
    QTest::newRow("weighted beyond 64 bits")
        << with("\"rawTokens\":3", "\"rawTokens\":9223372036854775807");
    QTest::newRow("bad uuid") << with("E621E1F8-C36C", "Z621E1F8-C36C");
    QTest::newRow("braced uuid") << with("\"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\"",
                                         "\"{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}\"");
    QTest::newRow("object, not array") << ok;
    QTest::newRow("truncated") << QByteArray("[" + ok.left(40));
    // A day holds at most 2^50 weighted tokens, however they are signed, so that sums over
    // the history and ratios of them can never overflow.
    QVERIFY(SessionCodec::decodeDay(with("\"rawTokens\":3", "\"rawTokens\":1125899906842624")));
    QTest::newRow("one session over the cap")
        << with("\"rawTokens\":3", "\"rawTokens\":1125899906842625");
    const QByteArray half =
        QByteArray(ok).replace("\"rawTokens\":3", "\"rawTokens\":562949953421313");
    QTest::newRow("the day's sum over the cap") << QByteArray("[" + half + "," + half + "]");
    const QByteArray negative =
        QByteArray(ok).replace("\"rawTokens\":3", "\"rawTokens\":-562949953421313");
    QTest::newRow("negative counts over the cap") << QByteArray("[" + half + "," + negative + "]");
    QTest::newRow("the most negative count")
        << with("\"rawTokens\":3", "\"rawTokens\":-9223372036854775808");
}

void TokenModelTest::rejectsMalformedDays() {
    QFETCH(QByteArray, json);
    QVERIFY(!SessionCodec::decodeDay(json).has_value());
}

QTEST_GUILESS_MAIN(TokenModelTest)
#include "tst_tokenmodel.moc"
