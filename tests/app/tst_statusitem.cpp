#include "FakeClock.h"
#include "FakeDesktop.h"
#include "RecordingStatusItem.h"
#include "Sessions.h"

#include "app/StatusPresenter.h"
#include "model/PreferencesModel.h"
#include "sensing/ActivityMonitor.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using Icon = StatusItem::Icon;

// How the day and settings reach the status item. (The title and icon rules are tested
// through `mindmeter status`, which applies the same presenter; the menu through the tray app.)
class StatusItemTest : public QObject {
    Q_OBJECT
private slots:
    void followsTheDayAndAnotherProcessesSettings();
};

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
