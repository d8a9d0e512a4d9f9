#include "FakeClock.h"
#include "FakeDesktop.h"
#include "RecordingStatusItem.h"
#include "Sessions.h"

#include "app/StatusMenu.h"
#include "app/StatusPresenter.h"
#include "model/PreferencesModel.h"
#include "sensing/ActivityMonitor.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using Icon = StatusItem::Icon;

// The title and icon rules of the status item, its menu, and how settings reach it.
class StatusItemTest : public QObject {
    Q_OBJECT
private slots:
    void titles_data();
    void titles();
    void icons_data();
    void icons();
    void menuWithAndWithoutAnUpdate();
    void followsTheDayAndAnotherProcessesSettings();
};

void StatusItemTest::titles_data() {
    QTest::addColumn<qint64>("total");
    QTest::addColumn<QString>("type");
    QTest::addColumn<qint64>("rate");
    QTest::addColumn<QString>("style");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("symbol");
    QTest::newRow("below a thousand") << qint64(999) << "reasoning" << qint64(8) << "iconAndCount"
                                      << " 999 "
                                      << "bolt.fill";
    QTest::newRow("a thousand") << qint64(1000) << "ai" << qint64(50) << "iconAndCount"
                                << " 1.0k "
                                << "sparkles";
    QTest::newRow("rounds like printf") << qint64(12345) << "output" << qint64(28) << "countOnly"
                                        << " 12.3k "
                                        << "keyboard";
    QTest::newRow("no rate: dotted circle") << qint64(40) << "ai" << qint64(0) << "iconAndCount"
                                            << " 40 "
                                            << "circle.dotted";
    QTest::newRow("icon only: no title") << qint64(5000) << "input" << qint64(15) << "iconOnly"
                                         << ""
                                         << "";
}

void StatusItemTest::titles() {
    QFETCH(qint64, total);
    QFETCH(QString, type);
    QFETCH(qint64, rate);
    QFETCH(QString, style);
    QFETCH(QString, text);
    QFETCH(QString, symbol);
    const auto t = StatusPresenter::title(total, *TokenTypes::fromRawValue(type), rate,
                                          *MenuBarDisplays::fromRawValue(style));
    QCOMPARE(t.text, text);
    QCOMPARE(t.symbol, symbol);
}

void StatusItemTest::icons_data() {
    QTest::addColumn<double>("saturation");
    QTest::addColumn<QString>("style");
    QTest::addColumn<Icon>("icon");
    QTest::newRow("0.7999") << 0.7999 << "iconAndCount" << Icon::normal;
    QTest::newRow("0.8") << 0.8 << "iconAndCount" << Icon::orange;
    QTest::newRow("0.8999") << 0.8999 << "iconOnly" << Icon::orange;
    QTest::newRow("0.9") << 0.9 << "iconAndCount" << Icon::red;
    QTest::newRow("full") << 1.0 << "iconAndCount" << Icon::red;
    QTest::newRow("count only") << 1.0 << "countOnly" << Icon::none;
}

void StatusItemTest::icons() {
    QFETCH(double, saturation);
    QFETCH(QString, style);
    QFETCH(Icon, icon);
    QCOMPARE(StatusPresenter::icon(saturation, *MenuBarDisplays::fromRawValue(style)), icon);
}

void StatusItemTest::menuWithAndWithoutAnUpdate() {
    QStringList calls;
    StatusMenu::Actions actions;
    actions.openUpdatePage = [&] { calls << "update"; };
    actions.togglePopover = [&] { calls << "dashboard"; };
    actions.quit = [&] { calls << "quit"; };
    const auto titles = [](const QList<StatusMenuItem>& items) {
        QStringList t;
        for (const StatusMenuItem& i : items)
            t << (i.separator ? QStringLiteral("-") : i.title);
        return t;
    };
    const QList<StatusMenuItem> plain = StatusMenu::build(std::nullopt, actions);
    QCOMPARE(titles(plain),
             (QStringList{"Mindmeter v1.4.5 \u00b7 2026-05-30", "-", "Dashboard",
                          "Preferences\u2026", "-", "Copy Summary", "Export CSV\u2026", "-",
                          "Reset Today", "-", "Send Feedback", "-", "Quit"}));
    QVERIFY(!plain[0].enabled);
    QCOMPARE(plain[3].shortcut, QString(","));
    QCOMPARE(plain.last().shortcut, QString("q"));

    const QList<StatusMenuItem> withUpdate = StatusMenu::build(QStringLiteral("1.5.0"), actions);
    QCOMPARE(withUpdate.size(), plain.size() + 2);
    QCOMPARE(withUpdate[2].title, QString("\u2b06 Update available \u2014 v1.5.0"));
    QVERIFY(withUpdate[3].separator);
    QCOMPARE(withUpdate[4].title, QString("Dashboard"));
    withUpdate[2].action();
    withUpdate[4].action();
    withUpdate.last().action();
    QCOMPARE(calls, (QStringList{"update", "dashboard", "quit"}));
}

void StatusItemTest::followsTheDayAndAnotherProcessesSettings() {
    QTemporaryDir dir;
    const QString path = dir.filePath("mindmeter.sqlite3");
    auto db = SqliteDefaults::open(path);
    db->watchForExternalChanges();
    FakeClock clock(local(2026, 5, 30, 10));
    DayStore store(*db, clock);
    FakeWorkspace workspace;
    workspace.front = app("com.microsoft.VSCode", "Code");
    FakeIdleSource idle;
    ActivityMonitor::Options options;
    options.claudeProcessRunning = [] { return false; };
    ActivityMonitor monitor(
        store, workspace, idle, *db, clock, [] { return 1.0; }, options);
    monitor.start();
    PreferencesModel preferences(*db);
    RecordingStatusItem item;
    StatusPresenter presenter(item, store, monitor, preferences);
    settle();
    QCOMPARE(item.text, QString(" 0 "));
    QCOMPARE(item.symbol, QString("bolt.fill")); // the editor earns reasoning tokens

    // Saturation 0.8 of a 1000-token budget turns the icon orange.
    db->setInteger("mindmeter.dailyTokenBaseline", 1000);
    store.addSession(makeSession(TokenType::input, 800, clock.now()));
    settle();
    QCOMPARE(item.text, QString(" 800 "));
    QCOMPARE(item.icon, Icon::orange);

    // Another process switches to count-only: the status item follows without any change
    // of the total.
    auto other = SqliteDefaults::open(path);
    const int before = item.updates;
    other->setString("mindmeter.menuBarStyle", "countOnly");
    QTRY_COMPARE(item.icon, Icon::none);
    QVERIFY(item.updates > before);
    other->setString("mindmeter.menuBarStyle", "iconOnly");
    QTRY_COMPARE(item.text, QString());
    QCOMPARE(item.icon, Icon::orange);
    QCOMPARE(item.placement, StatusItem::CountPlacement::automatic);
    other->setString("mindmeter.countPlacement", "inIcon");
    QTRY_COMPARE(item.placement, StatusItem::CountPlacement::inIcon);
    monitor.stop();
}

QTEST_GUILESS_MAIN(StatusItemTest)
#include "tst_statusitem.moc"
