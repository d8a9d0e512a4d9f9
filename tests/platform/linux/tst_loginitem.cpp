#include "app/PreferencesActions.h"
#include "platform/linux/XdgAutostartLoginItem.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using Status = LoginItem::Status;

// Launch at login through an XDG autostart entry, and what the preferences show of it.
class LoginItemTest : public QObject {
    Q_OBJECT
private slots:
    void init() { m_dir = std::make_unique<QTemporaryDir>(); }
    void desktopSettingsSwitchedItOff();
    void unavailableWithoutAProgram();
    void preferencesShowTheRealState();

private:
    QString folder() const { return m_dir->filePath("autostart"); }
    QString program() const { return QCoreApplication::applicationFilePath(); }
    QByteArray entry(const XdgAutostartLoginItem& item) const {
        QFile f(item.entryPath());
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void LoginItemTest::desktopSettingsSwitchedItOff() {
    XdgAutostartLoginItem item(program(), folder());
    QDir().mkpath(folder());
    QFile f(item.entryPath());
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("[Desktop Entry]\nType=Application\nExec=x\nX-GNOME-Autostart-enabled=false\n");
    f.close();
    QCOMPARE(item.status(), Status::disabled);
}

void LoginItemTest::unavailableWithoutAProgram() {
    XdgAutostartLoginItem item(m_dir->filePath("no-such-program"), folder());
    QCOMPARE(item.status(), Status::notFound);
    QString error;
    QVERIFY(!item.registerItem(&error));
    QVERIFY(!error.isEmpty());
    QVERIFY(!QFile::exists(item.entryPath()));
}

void LoginItemTest::preferencesShowTheRealState() {
    XdgAutostartLoginItem item(program(), folder());
    PreferencesActions actions(item, {});
    QCOMPARE(item.status(), Status::notRegistered);
    QCOMPARE(actions.launchAtLogin(), false);
    QCOMPARE(actions.launchAtLoginHelp(),
             QString("Enable to start Mindmeter automatically at login."));
    actions.setLaunchAtLogin(true);
    QCOMPARE(item.status(), Status::enabled);
    QVERIFY(entry(item).startsWith("[Desktop Entry]\n"));
    QVERIFY(entry(item).contains("Exec=\"" + program().toUtf8() + "\"\n"));
    QCOMPARE(actions.launchAtLogin(), true);
    QCOMPARE(actions.launchAtLoginHelp(), QString("Mindmeter starts automatically at login."));
    // Switched off, the entry stays, marked hidden, so it is not set up again at start.
    actions.setLaunchAtLogin(false);
    QCOMPARE(item.status(), Status::disabled);
    QVERIFY(entry(item).contains("Hidden=true\n"));
    QCOMPARE(actions.launchAtLogin(), false);
    QCOMPARE(actions.launchAtLoginHelp(), QString()); // switched off: no text

    // A folder that cannot be made (a file stands in the way): the toggle returns to what
    // is really there.
    QFile blocker(m_dir->filePath("blocker"));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    XdgAutostartLoginItem blocked(program(), m_dir->filePath("blocker/autostart"));
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
