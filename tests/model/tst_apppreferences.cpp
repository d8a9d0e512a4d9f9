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
    void conversionsBetweenTypes();
    void stringConversions_data();
    void stringConversions();

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

void AppPreferencesTest::conversionsBetweenTypes() {
    Defaults& d = *m_db;
    d.setInteger("k", 42);
    QCOMPARE(d.real("k"), 42.0);
    QCOMPARE(d.boolean("k"), true);
    QCOMPARE(d.string("k"), std::optional<QString>("42"));
    QCOMPARE(d.data("k"), std::nullopt);

    d.setReal("k", -3.99);
    QCOMPARE(d.integer("k"), qint64(-3)); // truncated toward zero
    QCOMPARE(d.string("k"), std::optional<QString>("-3.99"));
    d.setReal("k", 1e300);
    QCOMPARE(d.integer("k"), std::numeric_limits<qint64>::max()); // saturates
    d.setReal("k", 0.0);
    QCOMPARE(d.boolean("k"), false);

    d.setBool("k", true);
    QCOMPARE(d.integer("k"), qint64(1));
    QCOMPARE(d.real("k"), 1.0);
    QCOMPARE(d.string("k"), std::optional<QString>("1"));

    d.setData("k", QByteArray("12"));
    QCOMPARE(d.integer("k"), qint64(0)); // data never reads as a number or string
    QCOMPARE(d.string("k"), std::nullopt);
    QCOMPARE(d.data("k"), std::optional<QByteArray>("12"));

    QCOMPARE(d.integer("absent"), qint64(0));
    QCOMPARE(d.string("absent"), std::nullopt);
}

void AppPreferencesTest::stringConversions_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint64>("integer");
    QTest::addColumn<double>("real");
    QTest::addColumn<bool>("boolean");
    QTest::newRow("number") << "30000" << qint64(30000) << 30000.0 << true;
    QTest::newRow("spaces and sign") << "  -12" << qint64(-12) << -12.0 << true;
    QTest::newRow("trailing text") << "12abc" << qint64(12) << 12.0 << true;
    QTest::newRow("fraction") << "2.75" << qint64(2) << 2.75 << true;
    QTest::newRow("exponent") << "1.5e3" << qint64(1) << 1500.0 << true;
    QTest::newRow("leading dot") << ".5" << qint64(0) << 0.5 << false;
    QTest::newRow("zeros then digit") << "007" << qint64(7) << 7.0 << true;
    QTest::newRow("word yes") << "YES" << qint64(0) << 0.0 << true;
    QTest::newRow("word true") << "true" << qint64(0) << 0.0 << true;
    QTest::newRow("word no") << "no" << qint64(0) << 0.0 << false;
    QTest::newRow("empty") << "" << qint64(0) << 0.0 << false;
    QTest::newRow("overflow") << "99999999999999999999" << std::numeric_limits<qint64>::max()
                              << 1e20 << true;
    QTest::newRow("comma is not a point") << "2,5" << qint64(2) << 2.0 << true;
}

void AppPreferencesTest::stringConversions() {
    QFETCH(QString, text);
    QFETCH(qint64, integer);
    QFETCH(double, real);
    QFETCH(bool, boolean);
    m_db->setString("k", text);
    QCOMPARE(m_db->integer("k"), integer);
    QCOMPARE(m_db->real("k"), real);
    QCOMPARE(m_db->boolean("k"), boolean);
    QCOMPARE(m_db->string("k"), std::optional<QString>(text));
}

QTEST_GUILESS_MAIN(AppPreferencesTest)
#include "tst_apppreferences.moc"
