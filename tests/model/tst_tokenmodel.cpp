#include "model/ActivitySession.h"
#include "model/AppCategory.h"
#include "model/CategoryRules.h"
#include "model/Format.h"
#include "model/SessionCodec.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <set>

class TokenModelTest : public QObject {
    Q_OBJECT
private slots:
    void registryShape();
    void lookup_data();
    void lookup();
    void unknownApplicationsAreOther();
    void userRules_data();
    void userRules();
    void everyPrefixFindsItsOwnCategory();
    void tokenTypes();
    void weightingTruncates();
    void formatK_data();
    void formatK();
    void jsonRoundTrip();
    void encoderWritesThePlatformForm();
    void decodesHandWrittenDay();
    void rejectsMalformedDays_data();
    void rejectsMalformedDays();
};

void TokenModelTest::registryShape() {
    const auto& registry = appCategoryRegistry();
    QCOMPARE(registry.size(), size_t(17));
    const QStringList names = {"AI Tool",  "Code Editor",  "Terminal",      "Design",  "Creative",
                               "Dev Tool", "Git Client",   "Data / Slides", "Writing", "Messaging",
                               "Email",    "Task Manager", "Video Call",    "Browser", "Reading",
                               "Podcast",  "Music / Video"};
    const QList<qint64> rates = {50, 8, 8, 22, 20, 15, 12, 18, 32, 28, 28, 20, 22, 15, 18, 10, 0};
    int terminals = 0;
    for (size_t i = 0; i < registry.size(); ++i) {
        QCOMPARE(registry[i].displayName, names[int(i)]);
        QCOMPARE(registry[i].tokensPerMinute, rates[int(i)]);
        terminals += registry[i].isTerminal;
    }
    QCOMPARE(terminals, 1);
    QVERIFY(registry[2].isTerminal);
    // The listed prefixes plus the eight chosen ones: 4 terminals, a Markdown editor, a
    // PostgreSQL client, a Git client and a media player.
    QCOMPARE(registry[2].bundleIDPrefixes.size(), 7 + 4);
    QCOMPARE(registry[1].bundleIDPrefixes.size(), 21 + 1);
    QCOMPARE(registry[5].bundleIDPrefixes.size(), 17 + 1);
    QCOMPARE(registry[6].bundleIDPrefixes.size(), 5 + 1);
    QCOMPARE(registry[16].bundleIDPrefixes.size(), 13 + 1);
    // Mixed case is kept as written.
    QVERIFY(registry[1].bundleIDPrefixes.contains("com.apple.dt.Xcode"));
}

void TokenModelTest::lookup_data() {
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("name");
    QTest::newRow("specific todesktop wins") << "com.todesktop.230313mzl4w4u92"
                                             << "AI Tool";
    QTest::newRow("general todesktop") << "com.todesktop.other"
                                       << "Code Editor";
    QTest::newRow("case-insensitive") << "COM.APPLE.SAFARI"
                                      << "Browser";
    QTest::newRow("notion ai helper") << "com.notion.notion-ai.helper"
                                      << "AI Tool";
    QTest::newRow("notion") << "com.notion.id"
                            << "Writing";
    QTest::newRow("prefix without dot") << "claude-desktop"
                                        << "AI Tool";
    QTest::newRow("jetbrains toolbox") << "com.jetbrains.toolbox"
                                       << "Terminal";
    QTest::newRow("jetbrains ide") << "com.jetbrains.intellij"
                                   << "Code Editor";
    QTest::newRow("teams2 over teams") << "com.microsoft.teams2"
                                       << "Messaging";
    QTest::newRow("openai chat") << "com.openai.chat"
                                 << "AI Tool";
    QTest::newRow("linear prefix") << "com.linearity.curve"
                                   << "Task Manager";
    QTest::newRow("chosen terminal") << "net.kovidgoyal.kitty"
                                     << "Terminal";
    QTest::newRow("chosen media player") << "com.colliderli.iina"
                                         << "Music / Video";
    QTest::newRow("empty") << ""
                           << "Other";
    QTest::newRow("shorter than a prefix") << "com.apple"
                                           << "Other";
}

void TokenModelTest::lookup() {
    QFETCH(QString, id);
    QFETCH(QString, name);
    QCOMPARE(category(id).displayName, name);
}

void TokenModelTest::unknownApplicationsAreOther() {
    const AppCategory other = category("org.Example.Unknown");
    QCOMPARE(other.displayName, QString("Other"));
    QCOMPARE(other.tokenType, TokenType::input);
    QCOMPARE(other.tokensPerMinute, qint64(8));
    QCOMPARE(other.isTerminal, false);
    QCOMPARE(other.bundleIDPrefixes, QStringList{"org.Example.Unknown"}); // not lower-cased

    // A known category comes back whole, with the registry's mixed-case list.
    QCOMPARE(category("com.apple.dt.xcode.helper").bundleIDPrefixes,
             appCategoryRegistry()[1].bundleIDPrefixes);
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
        R"([{"app": "org.kde.kate", "type": "reasoning", "rate": 1e300}])",
        R"([{"app": "org.kde.kate", "type": "thinking", "rate": 20}])",
        R"([{"app": "org.kde.kate", "category": "Writing", "rate": 20}])",
        R"([{"app": "", "category": "Writing"}])",
        R"([{"app": "org.kde.kate", "site": "kate.org", "category": "Writing"}])",
        R"([{"app": 7, "category": "Writing"}])",
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

void TokenModelTest::tokenTypes() {
    using namespace TokenTypes;
    QCOMPARE(allCases.size(), size_t(4));
    QCOMPARE(allCases[0], TokenType::reasoning);
    QCOMPARE(allCases[1], TokenType::output);
    QCOMPARE(allCases[2], TokenType::input);
    QCOMPARE(allCases[3], TokenType::ai);
    QCOMPARE(label(TokenType::ai), QString("AI Collab"));
    QCOMPARE(symbol(TokenType::reasoning), QString("bolt.fill"));
    for (TokenType t : allCases)
        QCOMPARE(fromRawValue(rawValue(t)), std::optional<TokenType>(t));
    QCOMPARE(fromRawValue(u"Reasoning"), std::nullopt);
    QCOMPARE(fromRawValue(u""), std::nullopt);
}

void TokenModelTest::weightingTruncates() {
    auto weighted = [](TokenType t, qint64 raw) {
        ActivitySession s;
        s.tokenType = t;
        s.rawTokens = raw;
        return s.weightedTokens();
    };
    QCOMPARE(weighted(TokenType::reasoning, 7), qint64(21));
    QCOMPARE(weighted(TokenType::ai, 3), qint64(7));
    QCOMPARE(weighted(TokenType::ai, 1), qint64(2));
    QCOMPARE(weighted(TokenType::ai, -3), qint64(-7)); // toward zero, not down
    QCOMPARE(weighted(TokenType::input, 5), qint64(5));
    QCOMPARE(weighted(TokenType::output, 0), qint64(0));
    // The edges of the 64-bit range: representable products pass, larger ones do not.
    QVERIFY(ActivitySession::weighted(qint64(1) << 61, TokenType::output).has_value());
    QVERIFY(!ActivitySession::weighted(qint64(1) << 62, TokenType::output).has_value());
    QVERIFY(!ActivitySession::weighted(std::numeric_limits<qint64>::max(), TokenType::input));
    QCOMPARE(ActivitySession::weighted(std::numeric_limits<qint64>::min(), TokenType::input),
             std::optional<qint64>(std::numeric_limits<qint64>::min()));

    ActivitySession s;
    s.startTime = {100.25};
    s.endTime = {160.75};
    QCOMPARE(s.duration(), 60.5);
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
    // Percentages format the same way: a saturation of 0.125 is 12 %, 0.135 is 14 %.
    QCOMPARE(printfDouble("%.0f%%", 0.125 * 100.0), QStringLiteral("12%"));
    QCOMPARE(printfDouble("%.0f%%", 0.135 * 100.0), QStringLiteral("14%"));
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

void TokenModelTest::decodesHandWrittenDay() {
    // Written by hand: keys in another order, a lower-case id, an integer date.
    const QByteArray fixture = R"([
      {"rawTokens": 10, "tokenType": "reasoning", "appName": "Xcode",
       "appBundleID": "com.apple.dt.Xcode", "endTime": 801792600.5, "startTime": 801792000,
       "id": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"},
      {"id": "a1b2c3d4-0000-4000-8000-000000000001", "appBundleID": "claude", "appName": "Claude",
       "tokenType": "ai", "startTime": 801793000.25, "endTime": 801793060.25, "rawTokens": 3}
    ])";
    const auto day = SessionCodec::decodeDay(fixture);
    QVERIFY(day.has_value());
    QCOMPARE(day->size(), 2);
    const ActivitySession& first = day->at(0);
    QCOMPARE(first.id, QUuid("{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}"));
    QCOMPARE(first.appName, QString("Xcode"));
    QCOMPARE(first.weightedTokens(), qint64(30));
    QCOMPARE(first.duration(), 600.5);
    // 801792000 s after 2001-01-01 is the start of 2026-05-30, UTC.
    QCOMPARE(first.startTime.toDateTime(), QDateTime(QDate(2026, 5, 30), QTime(0, 0), Qt::UTC));
    QCOMPARE(day->at(1).weightedTokens(), qint64(7));
    QCOMPARE(day->at(1).id.toString(QUuid::WithoutBraces).toUpper(),
             QString("A1B2C3D4-0000-4000-8000-000000000001"));
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
    QTest::newRow("unknown type") << with("\"input\"", "\"focus\"");
    QTest::newRow("missing key") << with("\"appName\":\"b\",", "");
    QTest::newRow("null value") << with("\"appName\":\"b\"", "\"appName\":null");
    QTest::newRow("number as string") << with("\"rawTokens\":3", "\"rawTokens\":\"3\"");
    QTest::newRow("fractional count") << with("\"rawTokens\":3", "\"rawTokens\":3.5");
    QTest::newRow("count beyond 64 bits") << with("\"rawTokens\":3", "\"rawTokens\":1e30");
    QTest::newRow("weighted beyond 64 bits")
        << with("\"rawTokens\":3", "\"rawTokens\":9223372036854775807");
    QTest::newRow("date as string") << with("\"startTime\":1", "\"startTime\":\"1\"");
    QTest::newRow("bad uuid") << with("E621E1F8-C36C", "Z621E1F8-C36C");
    QTest::newRow("braced uuid") << with("\"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\"",
                                         "\"{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}\"");
    QTest::newRow("object, not array") << ok;
    QTest::newRow("truncated") << QByteArray("[" + ok.left(40));
    QTest::newRow("element not object") << QByteArray("[1]");
    QTest::newRow("empty") << QByteArray();
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
