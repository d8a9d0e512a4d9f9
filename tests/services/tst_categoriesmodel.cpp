// The Categories tab's model over a real settings file, with a second connection standing in
// for the command line.
#include "FakeClock.h"
#include "Sessions.h"

#include "model/CategoryRules.h"
#include "model/SessionCodec.h"
#include "services/CategoriesModel.h"
#include "store/DayKeys.h"
#include "store/SqliteDefaults.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QVariantMap>

class CategoriesModelTest : public QObject {
    Q_OBJECT
private slots:
    void recentApplicationsAndTheirRules();
};

namespace {

QStringList rows(const CategoriesModel& model) {
    QStringList out;
    for (const QVariant& v : model.applications()) {
        const QVariantMap m = v.toMap();
        out << QStringLiteral("%1 %2 %3%4")
                   .arg(m["bundleID"].toString(), m["name"].toString(), m["category"].toString(),
                        m["ruled"].toBool() ? " (rule)" : "");
    }
    return out;
}

} // namespace

void CategoriesModelTest::recentApplicationsAndTheirRules() {
    QTemporaryDir dir;
    const QString path = dir.filePath("data.sqlite3");
    std::unique_ptr<SqliteDefaults> app = SqliteDefaults::open(path);
    std::unique_ptr<SqliteDefaults> commandLine = SqliteDefaults::open(path);
    QVERIFY(app && commandLine);
    const FakeClock clock(local(2026, 5, 30, 12));
    // Today, a day 29 days back (in), one 30 days back (out), and a tracker's own session.
    const auto day = [&](int back, QList<ActivitySession> sessions) {
        const QDateTime when = clock.now().addDays(-back);
        QVERIFY(app->setData(DayKeys::sessions(DayKeys::dayText(when)),
                             SessionCodec::encodeDay(sessions)));
    };
    const QDateTime t = clock.now();
    day(0, {makeSession(TokenType::reasoning, 5, t, "org.kde.kate"),
            makeSession(TokenType::ai, 25, t, "browser.ai.claude.ai")});
    day(29, {makeSession(TokenType::output, 90, t.addDays(-29), "com.tinyspeck.slackmacgap")});
    day(30, {makeSession(TokenType::output, 90, t.addDays(-30), "org.gnome.Evolution")});

    app->watchForExternalChanges();
    CategoriesModel model(*app, clock);
    QVERIFY(model.applications().isEmpty()); // the days are read when the window shows
    model.refresh();
    QCOMPARE(rows(model),
             (QStringList{"com.tinyspeck.slackmacgap App Messaging", "org.kde.kate App Other"}));

    QVERIFY(model.assign("org.kde.kate", "writing"));
    QVERIFY(!model.assign("org.kde.kate", "Notes")); // not a category: nothing written
    QCOMPARE(rows(model).last(), QString("org.kde.kate App Writing (rule)"));

    // Another process's change reaches the model without a restart.
    QSignalSpy changed(&model, &CategoriesModel::changed);
    QVERIFY(commandLine->setString(CategoryRules::key,
                                   R"([{"app": "com.tinyspeck", "type": "ai", "rate": 40}])"));
    QTRY_VERIFY_WITH_TIMEOUT(!changed.isEmpty(), 10000);
    QCOMPARE(rows(model), (QStringList{"com.tinyspeck.slackmacgap App ai, 40 per minute (rule)",
                                       "org.kde.kate App Other"}));

    QVERIFY(model.removeRule(false, "COM.TINYSPECK"));
    QVERIFY(!commandLine->value(CategoryRules::key).isValid()); // the last rule took the key
    QVERIFY(!model.removeRule(false, "com.tinyspeck"));

    QVERIFY(commandLine->setString(CategoryRules::key, "not a list"));
    QTRY_VERIFY_WITH_TIMEOUT(model.rulesUnreadable(), 10000);
    QVERIFY(!model.assign("org.kde.kate", "Writing"));
    QVERIFY(model.removeUnreadableRules());
    QVERIFY(!model.rulesUnreadable());
}

QTEST_GUILESS_MAIN(CategoriesModelTest)
#include "tst_categoriesmodel.moc"
