#include "app/PreferencesActions.h"
#include "platform/linux/XdgAutostartLoginItem.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using Status = LoginItem::Status;

// Launch at login through an XDG autostart entry, and what the preferences show of it.
class LoginItemTest : public QObject {
    Q_OBJECT
private slots:
    void preferencesShowTheRealState();
};

void LoginItemTest::preferencesShowTheRealState() {
    QTemporaryDir dir;
    const QString program = QCoreApplication::applicationFilePath();
    XdgAutostartLoginItem item(program, dir.filePath("autostart"));
    const auto entry = [&] {
        QFile f(item.entryPath());
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    };
    PreferencesActions actions(item, {});
    QCOMPARE(item.status(), Status::notRegistered);
    QCOMPARE(actions.launchAtLogin(), false);
    QCOMPARE(actions.launchAtLoginHelp(),
             QString("Enable to start Mindmeter automatically at login."));
    actions.setLaunchAtLogin(true);
    QCOMPARE(item.status(), Status::enabled);
    QVERIFY(entry().startsWith("[Desktop Entry]\n"));
    QVERIFY(entry().contains("Exec=\"" + program.toUtf8() + "\"\n"));
    QCOMPARE(actions.launchAtLogin(), true);
    QCOMPARE(actions.launchAtLoginHelp(), QString("Mindmeter starts automatically at login."));
    // Switched off, the entry stays, marked hidden, so it is not set up again at start.
    actions.setLaunchAtLogin(false);
    QCOMPARE(item.status(), Status::disabled);
    QVERIFY(entry().contains("Hidden=true\n"));
    QCOMPARE(actions.launchAtLogin(), false);
    QCOMPARE(actions.launchAtLoginHelp(), QString()); // switched off: no text
    // On again, then switched off in the desktop's own settings: off here too.
    actions.setLaunchAtLogin(true);
    QFile desktops(item.entryPath());
    QVERIFY(desktops.open(QIODevice::WriteOnly | QIODevice::Truncate));
    desktops.write("[Desktop Entry]\nType=Application\nExec=x\nX-GNOME-Autostart-enabled=false\n");
    desktops.close();
    QCOMPARE(item.status(), Status::disabled);

    // A folder that cannot be made (a file stands in the way): the toggle returns to what
    // is really there.
    QFile blocker(dir.filePath("blocker"));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    XdgAutostartLoginItem blocked(program, dir.filePath("blocker/autostart"));
    PreferencesActions failing(blocked, {});
    QSignalSpy changed(&failing, &PreferencesActions::launchAtLoginChanged);
    failing.setLaunchAtLogin(true);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(failing.launchAtLogin(), false);
    QCOMPARE(failing.launchAtLoginHelp(),
             QString("Enable to start Mindmeter automatically at login."));
}

QTEST_GUILESS_MAIN(LoginItemTest)
#include "tst_loginitem.moc"
