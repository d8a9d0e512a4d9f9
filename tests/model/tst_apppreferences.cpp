#include "model/AppPreferences.h"
#include "model/OnboardingNote.h"
#include "store/SqliteDefaults.h"

#include <QTest>

#include <limits>

class AppPreferencesTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void integerSettingsFallBackBelowOne();
    void idleTimeout_data();
    void idleTimeout();
    void menuBarStyleMatchesExactly();
    void onboardingNoteNamesWhatTheSessionNeeds();
    void endOfDayTime();
    void conversions_data();
    void conversions();

private:
    std::unique_ptr<SqliteDefaults> m_db;
};

void AppPreferencesTest::init() {
    m_db = SqliteDefaults::open(":memory:");
    QVERIFY(m_db);
}

void AppPreferencesTest::integerSettingsFallBackBelowOne() {
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
}

void AppPreferencesTest::idleTimeout_data() {
    QTest::addColumn<qint64>("minutes");
    QTest::addColumn<double>("seconds");
    QTest::newRow("one minute") << qint64(1) << 60.0;
    QTest::newRow("zero") << qint64(0) << 180.0;
    QTest::newRow("negative") << qint64(-5) << 180.0;
    QTest::newRow("ten") << qint64(10) << 600.0;
}

void AppPreferencesTest::idleTimeout() {
    QFETCH(qint64, minutes);
    QFETCH(double, seconds);
    m_db->setInteger(AppPreferences::idleTimeoutMinutes, minutes);
    QCOMPARE(AppPreferences::idleTimeout(*m_db), seconds);
}

void AppPreferencesTest::menuBarStyleMatchesExactly() {
    m_db->setString(AppPreferences::menuBarStyle, "countOnly");
    QCOMPARE(AppPreferences::menuBarDisplay(*m_db), MenuBarDisplay::countOnly);
    m_db->setString(AppPreferences::menuBarStyle, "iconOnly");
    QCOMPARE(AppPreferences::menuBarDisplay(*m_db), MenuBarDisplay::iconOnly);
    m_db->setString(AppPreferences::menuBarStyle, "IconOnly");
    QCOMPARE(AppPreferences::menuBarDisplay(*m_db), MenuBarDisplay::iconAndCount);
    m_db->setInteger(AppPreferences::menuBarStyle, 1); // not a style name
    QCOMPARE(AppPreferences::menuBarDisplay(*m_db), MenuBarDisplay::iconAndCount);

    // The count's placement is one of three words; anything else is automatic.
    QCOMPARE(AppPreferences::countPlacementValue(*m_db), QString("automatic"));
    m_db->setString(AppPreferences::countPlacement, "inIcon");
    QCOMPARE(AppPreferences::countPlacementValue(*m_db), QString("inIcon"));
    m_db->setString(AppPreferences::countPlacement, "Beside");
    QCOMPARE(AppPreferences::countPlacementValue(*m_db), QString("automatic"));
}

// Only GNOME under Wayland needs something (the shell extension); the title agrees.
void AppPreferencesTest::onboardingNoteNamesWhatTheSessionNeeds() {
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

void AppPreferencesTest::endOfDayTime() {
    m_db->setReal(AppPreferences::proEndOfDayTime, 0.0);
    QCOMPARE(AppPreferences::endOfDayTimeSeconds(*m_db), 66600.0);
    m_db->setReal(AppPreferences::proEndOfDayTime, -1.0);
    QCOMPARE(AppPreferences::endOfDayTimeSeconds(*m_db), 66600.0);
    m_db->setReal(AppPreferences::proEndOfDayTime, 100000.0); // beyond a day: unchanged
    QCOMPARE(AppPreferences::endOfDayTimeSeconds(*m_db), 100000.0);
    m_db->setInteger(AppPreferences::proEndOfDayTime, 3600); // an integer reads as a double
    QCOMPARE(AppPreferences::endOfDayTimeSeconds(*m_db), 3600.0);
}

void AppPreferencesTest::conversions_data() {
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

void AppPreferencesTest::conversions() {
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

QTEST_GUILESS_MAIN(AppPreferencesTest)
#include "tst_apppreferences.moc"
