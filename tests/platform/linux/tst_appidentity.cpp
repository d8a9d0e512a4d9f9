#include "model/AppCategory.h"
#include "platform/linux/AppAliases.h"
#include "platform/linux/AppIdentityResolver.h"
#include "platform/linux/DesktopEntry.h"
#include "platform/linux/DesktopEntryIndex.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

namespace {

void writeFile(const QString& path, const QByteArray& text) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(text);
}

QByteArray entry(const char* name, const char* extra = "") {
    return QByteArray("[Desktop Entry]\nType=Application\nName=") + name + "\n" + extra;
}

} // namespace

class AppIdentityTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void resolves_data();
    void resolves();
    void aliasTableCoversCommonApplications();

private:
    QTemporaryDir m_dir;
    QString m_home, m_system, m_proc;
};

void AppIdentityTest::initTestCase() {
    QVERIFY(m_dir.isValid());
    m_home = m_dir.filePath("home");
    m_system = m_dir.filePath("system");
    m_proc = m_dir.filePath("proc");
    // Installed entries, as distributions ship them.
    writeFile(m_system + "/applications/org.gnome.Terminal.desktop",
              entry("Terminal", "Name[de]=Terminal (de)\nName[de_CH]=Terminal (CH)\n"
                                "StartupWMClass=Gnome-terminal\n"));
    writeFile(m_system + "/applications/code.desktop",
              entry("Visual Studio Code", "StartupWMClass=Code\n"));
    writeFile(m_system + "/applications/firefox-esr.desktop", entry("Firefox ESR"));
    writeFile(m_system + "/applications/kde/org.kde.konsole.desktop", entry("Konsole"));
    writeFile(m_system + "/applications/org.gimp.GIMP.desktop",
              entry("GNU Image Manipulation Program"));
    writeFile(m_system + "/applications/firefox_firefox.desktop", entry("Firefox (Snap)"));
    writeFile(m_system + "/applications/mytool.desktop", entry("My Tool"));
    writeFile(m_system + "/applications/broken.desktop", "no group here\nName=Nothing\n");
    // The user's own entries come first.
    writeFile(m_home + "/applications/mytool.desktop", entry("My Own Tool"));
    // Processes in a Flatpak, a Snap, and a Flatpak known by its scope.
    writeFile(m_proc + "/100/root/.flatpak-info",
              "[Application]\nname=org.gimp.GIMP\nruntime=runtime/org.gnome.Platform\n");
    writeFile(m_proc + "/200/cgroup", "0::/user.slice/user-1000.slice/user@1000.service/app.slice/"
                                      "snap.firefox.firefox-6b1f0cd2.scope\n");
    writeFile(
        m_proc + "/300/cgroup",
        "0::/user.slice/user@1000.service/app.slice/app-flatpak-com.slack.Slack-4242.scope\n");
}

void AppIdentityTest::resolves_data() {
    QTest::addColumn<QStringList>("window"); // GTK id, KDE desktop file, WM_CLASS instance, class
    QTest::addColumn<qint64>("pid");
    QTest::addColumn<QString>("bundleID");
    QTest::addColumn<QString>("name");
    const auto row = [](const char* tag, const QStringList& window, qint64 pid, const char* id,
                        const char* name) {
        QTest::newRow(tag) << window << pid << QString(id) << QString(name);
    };
    // The GTK application id names the entry even when WM_CLASS says something else.
    row("GTK id", {"org.gnome.Terminal", "", "gnome-terminal-server", "Gnome-terminal"}, 0,
        "com.apple.Terminal.GNOME", "Terminal (CH)");
    row("StartupWMClass", {"", "", "code", "Code"}, 0, "com.microsoft.VSCode",
        "Visual Studio Code");
    row("KDE desktop file", {"", "kde-org.kde.konsole.desktop", "konsole", "konsole"}, 0,
        "com.apple.Terminal.Konsole", "Konsole");
    row("class as entry id", {"", "", "Navigator", "firefox-esr"}, 0, "org.mozilla.firefox-esr",
        "Firefox ESR");
    row("alias, no entry", {"", "", "xterm", "XTerm"}, 0, "com.apple.Terminal.XTerm", "XTerm");
    // Sandboxed windows often carry a generic WM_CLASS; the sandbox id names them.
    row("Flatpak", {"", "", "gimp-2.99", "Gimp-2.99"}, 100, "com.adobe.Photoshop.GIMP",
        "GNU Image Manipulation Program");
    row("Snap", {"", "", "Navigator", "firefox"}, 200, "org.mozilla.firefox", "Firefox (Snap)");
    row("Flatpak scope", {"", "", "slack", "Slack"}, 300, "com.tinyspeck.slackmacgap", "Slack");
    row("unknown, with entry", {"", "", "mytool", "MyTool"}, 0, "mytool", "My Own Tool");
    row("unknown, no entry", {"", "", "strange", "Strange-App"}, 0, "strange-app", "Strange-App");
    row("says nothing", {"", "", "", ""}, 0, "", "");
    row("own window", {"", "", "whatever", "Whatever"}, 4242, "com.mindmeter.Mindmeter",
        "Mindmeter");
    row("another instance", {"", "", "mindmeter", "mindmeter"}, 1, "com.mindmeter.Mindmeter",
        "Mindmeter");
}

void AppIdentityTest::resolves() {
    QFETCH(QStringList, window);
    QFETCH(qint64, pid);
    DesktopEntryIndex index({m_home, m_system}, {"de_CH", "de"});
    AppIdentityResolver resolver(index, AppAliases::builtIn(), 4242, "com.mindmeter.Mindmeter",
                                 m_proc);
    const RunningApp app = resolver.resolve({window[0], window[1], window[2], window[3], pid});
    QTEST(app.bundleID, "bundleID");
    QTEST(app.localizedName, "name");
}

void AppIdentityTest::aliasTableCoversCommonApplications() {
    const AppAliases& table = AppAliases::builtIn();
    QVERIFY2(table.shadowedNames().isEmpty(), qPrintable(table.shadowedNames().join(' ')));
    // Every identifier lands in a real category, never "Other", apart from this program.
    for (const AppAliases::Alias& a : table.aliases())
        if (a.identifier != "com.mindmeter.Mindmeter")
            QVERIFY2(category(a.identifier).displayName != "Other", qPrintable(a.identifier));
}

QTEST_GUILESS_MAIN(AppIdentityTest)
#include "tst_appidentity.moc"
