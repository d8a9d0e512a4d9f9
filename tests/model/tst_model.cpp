// The model's rules: categories and the user's rules, weighting, the stored day's form, and
// the typed settings.

#include "model/ActivitySession.h"
#include "model/AppCategory.h"
#include "model/AppPreferences.h"
#include "model/CategoryRules.h"
#include "model/OnboardingNote.h"
#include "model/SessionCodec.h"
#include "store/SqliteDefaults.h"

#include <QTest>

#include <limits>

class ModelTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void integerSettingsFallBackBelowOne();
    void onboardingNoteNamesWhatTheSessionNeeds();
    void conversions_data();
    void conversions();
    void lookup_data();
    void lookup();
    void userRules_data();
    void userRules();
    void weightingTruncates();
    void jsonRoundTrip();
    void encoderWritesThePlatformForm();
    void rejectsMalformedDays_data();
    void rejectsMalformedDays();

private:
    std::unique_ptr<SqliteDefaults> m_db;
};

void ModelTest::init() {
    m_db = SqliteDefaults::open(":memory:");
    QVERIFY(m_db);
}

void ModelTest::integerSettingsFallBackBelowOne() {
    struct Case {
        const QString& key;
        qint64 (*getter)(const Defaults&);
        qint64 fallback;
    };
    const Case cases[] = {
        {AppPreferences::dailyTokenBaseline, &AppPreferences::dailyBaseline, 25000},
        {AppPreferences::proAlertThreshold, &AppPreferences::alertThreshold, 80},
        {AppPreferences::proTempAlertThreshold, &AppPreferences::tempAlertThreshold, 85},
        {AppPreferences::proTempAlertMinutes, &AppPreferences::tempAlertMinutes, 20},
        {AppPreferences::proDailyGoal, &AppPreferences::dailyGoal, 20000},
    };
    for (const Case& c : cases) {
        for (qint64 stored : {qint64(-1), qint64(0), std::numeric_limits<qint64>::min()}) {
            m_db->setInteger(c.key, stored);
            QCOMPARE(c.getter(*m_db), c.fallback);
        }
        m_db->setInteger(c.key, 1);
        QCOMPARE(c.getter(*m_db), qint64(1));
        m_db->setInteger(c.key, 1'000'000'000'000); // no upper bound
        QCOMPARE(c.getter(*m_db), qint64(1'000'000'000'000));
    }
    m_db->remove(AppPreferences::proDailyGoal);
    QCOMPARE(AppPreferences::dailyGoal(*m_db), qint64(20000)); // unset
    QCOMPARE(m_db->keys().size(), 4);                          // reading registers nothing
    // The idle time-out, in seconds, falls back to three minutes the same way.
    for (const auto& [minutes, seconds] : {std::pair{1ll, 60.0}, {0ll, 180.0}, {-5ll, 180.0}}) {
        m_db->setInteger(AppPreferences::idleTimeoutMinutes, minutes);
        QCOMPARE(AppPreferences::idleTimeout(*m_db), seconds);
    }
}

// Only GNOME under Wayland needs something (the shell extension); the title agrees.
void ModelTest::onboardingNoteNamesWhatTheSessionNeeds() {
    for (const auto& [type, desktop, extension] : {std::tuple{"wayland", "ubuntu:GNOME", true},
                                                   {"x11", "GNOME", false},
                                                   {"wayland", "KDE", false},
                                                   {"", "", false}}) {
        const auto text = OnboardingNote::forSession(type, desktop);
        QCOMPARE(text.description.contains("gnome-extensions enable mindmeter@mindmeter.app"),
                 extension);
        QCOMPARE(text.title.startsWith("No "), !extension);
    }
}

void ModelTest::conversions_data() {
    QTest::addColumn<QVariant>("stored"); // invalid: nothing stored
    QTest::addColumn<qint64>("integer");
    QTest::addColumn<double>("real");
    QTest::addColumn<bool>("boolean");
    QTest::addColumn<QVariant>("string"); // invalid: reads as no string
    const qint64 max = std::numeric_limits<qint64>::max();
    const auto text = [](const char* t) { return QVariant(QString::fromUtf8(t)); };
    QTest::newRow("integer") << QVariant(qint64(42)) << 42ll << 42.0 << true << text("42");
    QTest::newRow("real truncated toward zero")
        << QVariant(-3.99) << -3ll << -3.99 << true << text("-3.99");
    QTest::newRow("real saturates") << QVariant(1e300) << max << 1e300 << true << text("1e+300");
    QTest::newRow("real zero") << QVariant(0.0) << 0ll << 0.0 << false << text("0");
    QTest::newRow("bool") << QVariant(true) << 1ll << 1.0 << true << text("1");
    // Data never reads as a number or a string.
    QTest::newRow("data") << QVariant(QByteArray("12")) << 0ll << 0.0 << false << QVariant();
    QTest::newRow("absent") << QVariant() << 0ll << 0.0 << false << QVariant();
    QTest::newRow("number") << text("30000") << 30000ll << 30000.0 << true << text("30000");
    QTest::newRow("spaces and sign") << text("  -12") << -12ll << -12.0 << true << text("  -12");
    QTest::newRow("trailing text") << text("12abc") << 12ll << 12.0 << true << text("12abc");
    QTest::newRow("fraction") << text("2.75") << 2ll << 2.75 << true << text("2.75");
    QTest::newRow("exponent") << text("1.5e3") << 1ll << 1500.0 << true << text("1.5e3");
    QTest::newRow("leading dot") << text(".5") << 0ll << 0.5 << false << text(".5");
    QTest::newRow("zeros then digit") << text("007") << 7ll << 7.0 << true << text("007");
    QTest::newRow("word yes") << text("YES") << 0ll << 0.0 << true << text("YES");
    QTest::newRow("word true") << text("true") << 0ll << 0.0 << true << text("true");
    QTest::newRow("word no") << text("no") << 0ll << 0.0 << false << text("no");
    QTest::newRow("empty") << text("") << 0ll << 0.0 << false << text("");
    QTest::newRow("overflow") << text("99999999999999999999") << max << 1e20 << true
                              << text("99999999999999999999");
    QTest::newRow("comma is not a point") << text("2,5") << 2ll << 2.0 << true << text("2,5");
}

void ModelTest::conversions() {
    QFETCH(QVariant, stored);
    QFETCH(qint64, integer);
    QFETCH(double, real);
    QFETCH(bool, boolean);
    QFETCH(QVariant, string);
    if (stored.isValid())
        QVERIFY(m_db->setValue("k", stored));
    QCOMPARE(m_db->integer("k"), integer);
    QCOMPARE(m_db->real("k"), real);
    QCOMPARE(m_db->boolean("k"), boolean);
    QCOMPARE(m_db->string("k"), string.isValid() ? std::optional(string.toString()) : std::nullopt);
    QCOMPARE(m_db->data("k"), stored.typeId() == QMetaType::QByteArray
                                  ? std::optional(stored.toByteArray())
                                  : std::nullopt);
}

void ModelTest::lookup_data() {
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

void ModelTest::lookup() {
    QFETCH(QString, id);
    QFETCH(QString, name);
    QCOMPARE(category(id).displayName, name);
}

void ModelTest::userRules_data() {
    QTest::addColumn<QByteArray>("rules");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("name");
    QTest::addColumn<qint64>("customRate"); // for a rule of a type and a rate of its own
    const auto row = [](const char* tag, const QByteArray& rules, const char* id, const char* name,
                        qint64 rate = 0) {
        QTest::newRow(tag) << rules << QString(id) << QString(name) << rate;
    };
    const QByteArray kate = R"([{"app": "org.kde", "category": "Email"},
                                {"app": "ORG.KDE.kate", "category": "writing"}])";
    row("no rules", "[]", "com.apple.Safari", "Browser");
    row("rule over the registry", R"([{"app": "com.apple.Safari", "category": "Reading"}])",
        "com.apple.Safari.x", "Reading");
    row("short rule over a long registry prefix", R"([{"app": "com", "category": "Podcast"}])",
        "com.openai.chat", "Podcast");
    row("longest rule, any case", kate, "org.kde.Kate", "Writing");
    row("shorter rule", kate, "org.kde.dolphin", "Email");
    row("no rule matches", kate, "org.gnome.gedit", "Other");
    row("type and rate", R"([{"app": "org.example.ide", "type": "reasoning", "rate": 1000}])",
        "org.example.ide", "Custom", 1000);
    row("a site rule is not an application rule",
        R"([{"site": "org.kde.kate", "category": "Writing"}])", "org.kde.kate", "Other");
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
        row(json, json, "org.kde.kate", "unreadable");
}

void ModelTest::userRules() {
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

void ModelTest::weightingTruncates() {
    QCOMPARE(ActivitySession::weighted(-3, TokenType::ai), std::optional<qint64>(-7)); // not -8
    // The edges of the 64-bit range: representable products pass, larger ones do not.
    QVERIFY(ActivitySession::weighted(qint64(1) << 61, TokenType::output).has_value());
    QVERIFY(!ActivitySession::weighted(qint64(1) << 62, TokenType::output).has_value());
    QVERIFY(!ActivitySession::weighted(std::numeric_limits<qint64>::max(), TokenType::input));
    QCOMPARE(ActivitySession::weighted(std::numeric_limits<qint64>::min(), TokenType::input),
             std::optional<qint64>(std::numeric_limits<qint64>::min()));
}

void ModelTest::jsonRoundTrip() {
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

void ModelTest::encoderWritesThePlatformForm() {
    const QUuid id("{0f8fad5b-d9cb-469f-a165-70867728950e}");
    const ActivitySession s{id, "com.a/b", "N", TokenType::output, {801792000.0}, {801792060.5}, 7};
    const QByteArray json = SessionCodec::encodeSession(s);
    QCOMPARE(json, QByteArray("{\"id\":\"0F8FAD5B-D9CB-469F-A165-70867728950E\","
                              "\"appBundleID\":\"com.a\\/b\",\"appName\":\"N\","
                              "\"tokenType\":\"output\",\"startTime\":801792000,"
                              "\"endTime\":801792060.5,\"rawTokens\":7}"));
}

void ModelTest::rejectsMalformedDays_data() {
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

void ModelTest::rejectsMalformedDays() {
    QFETCH(QByteArray, json);
    QVERIFY(!SessionCodec::decodeDay(json).has_value());
}

QTEST_GUILESS_MAIN(ModelTest)
#include "tst_model.moc"
