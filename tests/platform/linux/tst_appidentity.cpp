#include "model/AppCategory.h"
#include "platform/linux/AppAliases.h"
#include "platform/linux/AppIdentityResolver.h"
#include "platform/linux/DesktopEntry.h"
#include "platform/linux/DesktopEntryIndex.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
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
    void init();
    void parsesLocalizedNames();
    void userLanguages_data();
    void userLanguages();
    void earlierFoldersShadowLaterOnes();
    void resolutionOrder();
    void sandboxedProcesses();
    void unknownApplicationsKeepTheirId();
    void ownWindows();
    void aliasTableCoversCommonApplications();
    void aliasTableParsing();

private:
    QTemporaryDir m_dir;
    QString m_home, m_system;
};

void AppIdentityTest::init() {
    QVERIFY(m_dir.isValid());
    const QString base = m_dir.filePath(QString::number(QRandomGenerator::global()->generate()));
    m_home = base + "/home";
    m_system = base + "/system";
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
}

void AppIdentityTest::parsesLocalizedNames() {
    const QByteArray text = "# comment\n[Desktop Entry]\nName=Files\nName[de]=Dateien\n"
                            "Name[de_AT]=Dateien (AT)\nStartupWMClass = Nautilus \n"
                            "[Desktop Action new]\nName=New Window\nName[de]=Neues Fenster\n";
    QCOMPARE(DesktopEntry::parse("x", text, {})->name, QString("Files"));
    QCOMPARE(DesktopEntry::parse("x", text, {"de_DE", "de"})->name, QString("Dateien"));
    QCOMPARE(DesktopEntry::parse("x", text, {"de_AT", "de"})->name, QString("Dateien (AT)"));
    QCOMPARE(DesktopEntry::parse("x", text, {"fr_FR", "fr"})->name, QString("Files"));
    QCOMPARE(DesktopEntry::parse("x", text, {})->startupWMClass, QString("Nautilus"));
    QVERIFY(!DesktopEntry::parse("x", "Name=Loose\n", {}));
    QVERIFY(DesktopEntry::parse("x", entry("H", "Hidden=true\n"), {})->hidden);
}

void AppIdentityTest::userLanguages_data() {
    QTest::addColumn<QByteArray>("lang");
    QTest::addColumn<QStringList>("languages");
    QTest::newRow("full") << QByteArray("sr_RS.UTF-8@latin")
                          << QStringList{"sr_RS@latin", "sr_RS", "sr@latin", "sr"};
    QTest::newRow("country") << QByteArray("de_DE.UTF-8") << QStringList{"de_DE", "de"};
    QTest::newRow("language only") << QByteArray("fr") << QStringList{"fr"};
    QTest::newRow("C") << QByteArray("C.UTF-8") << QStringList{};
}

void AppIdentityTest::userLanguages() {
    QFETCH(QByteArray, lang);
    QFETCH(QStringList, languages);
    const QByteArray saved = qgetenv("LANG"), all = qgetenv("LC_ALL"), msg = qgetenv("LC_MESSAGES");
    qunsetenv("LC_ALL");
    qunsetenv("LC_MESSAGES");
    qputenv("LANG", lang);
    QCOMPARE(DesktopEntry::userLanguages(), languages);
    qputenv("LC_MESSAGES", "it_IT.UTF-8"); // more specific than LANG
    QCOMPARE(DesktopEntry::userLanguages().first(), QString("it_IT"));
    qputenv("LANG", saved);
    qputenv("LC_ALL", all);
    qputenv("LC_MESSAGES", msg);
}

void AppIdentityTest::earlierFoldersShadowLaterOnes() {
    writeFile(m_home + "/applications/code.desktop", entry("Code (mine)"));
    writeFile(m_home + "/applications/mytool.desktop", entry("Gone", "Hidden=true\n"));
    DesktopEntryIndex index({m_home, m_system}, {});
    QCOMPARE(index.byId("code")->name, QString("Code (mine)"));
    QCOMPARE(index.byId("CODE")->name, QString("Code (mine)"));            // ids match without case
    QVERIFY(!index.byId("mytool"));                                        // hidden by the user
    QCOMPARE(index.byId("kde-org.kde.konsole")->name, QString("Konsole")); // subfolder id
    QVERIFY(!index.byId("broken"));
    QVERIFY(!index.byStartupWMClass("code")); // the user's entry has no StartupWMClass
    QCOMPARE(index.byStartupWMClass("gnome-TERMINAL")->id, QString("org.gnome.Terminal"));
}

void AppIdentityTest::resolutionOrder() {
    DesktopEntryIndex index({m_home, m_system}, {"de_CH", "de"});
    AppIdentityResolver resolver(index, AppAliases::builtIn(), 0, "own", m_dir.filePath("noproc"));

    // The GTK application id names the entry even when WM_CLASS says something else.
    WindowFacts gtk{"org.gnome.Terminal", "", "gnome-terminal-server", "Gnome-terminal", 0};
    RunningApp a = resolver.resolve(gtk);
    QCOMPARE(a.bundleID, QString("com.apple.Terminal.GNOME"));
    QCOMPARE(a.localizedName, QString("Terminal (CH)"));
    QVERIFY(category(a.bundleID).isTerminal);

    // WM_CLASS against StartupWMClass: VS Code's class "Code".
    a = resolver.resolve({"", "", "code", "Code", 0});
    QCOMPARE(a.bundleID, QString("com.microsoft.VSCode"));
    QCOMPARE(a.localizedName, QString("Visual Studio Code"));

    // KDE names the desktop file; WM_CLASS against the desktop-entry id (Firefox ESR).
    a = resolver.resolve({"", "kde-org.kde.konsole.desktop", "konsole", "konsole", 0});
    QCOMPARE(a.localizedName, QString("Konsole"));
    QCOMPARE(a.bundleID, QString("com.apple.Terminal.Konsole"));
    a = resolver.resolve({"", "", "Navigator", "firefox-esr", 0});
    QCOMPARE(a.bundleID, QString("org.mozilla.firefox-esr"));
    QCOMPARE(a.localizedName, QString("Firefox ESR"));

    // No desktop entry: the alias still knows the application, and names it.
    a = resolver.resolve({"", "", "xterm", "XTerm", 0});
    QCOMPARE(a.bundleID, QString("com.apple.Terminal.XTerm"));
    QCOMPARE(a.localizedName, QString("XTerm"));
}

void AppIdentityTest::sandboxedProcesses() {
    const QString proc = m_dir.filePath("proc");
    writeFile(proc + "/100/root/.flatpak-info",
              "[Application]\nname=org.gimp.GIMP\nruntime=runtime/org.gnome.Platform\n");
    writeFile(proc + "/200/cgroup", "0::/user.slice/user-1000.slice/user@1000.service/app.slice/"
                                    "snap.firefox.firefox-6b1f0cd2.scope\n");
    writeFile(
        proc + "/300/cgroup",
        "0::/user.slice/user@1000.service/app.slice/app-flatpak-com.slack.Slack-4242.scope\n");
    writeFile(proc + "/400/cgroup", "0::/user.slice/session-2.scope\n");
    writeFile(proc + "/500/cgroup",
              "0::/user.slice/app.slice/snap.my-tool.run-it-0a1b2c3d-4e5f.scope\n");
    DesktopEntryIndex index({m_system}, {});
    AppIdentityResolver resolver(index, AppAliases::builtIn(), 0, "own", proc);
    QStringList ids;
    for (qint64 pid : {100, 200, 300, 400, 500, 999})
        ids << resolver.sandboxId(pid);
    QCOMPARE(ids, (QStringList{"org.gimp.GIMP", "firefox_firefox", "com.slack.Slack", "",
                               "my-tool_run-it", ""}));

    // Sandboxed windows often carry a generic WM_CLASS; the sandbox id names them.
    RunningApp gimp = resolver.resolve({"", "", "gimp-2.99", "Gimp-2.99", 100});
    QCOMPARE(gimp.localizedName, QString("GNU Image Manipulation Program"));
    QCOMPARE(gimp.bundleID, QString("com.adobe.Photoshop.GIMP"));
    QCOMPARE(resolver.resolve({"", "", "Navigator", "firefox", 200}).localizedName,
             QString("Firefox (Snap)"));
    QCOMPARE(resolver.resolve({"", "", "slack", "Slack", 300}).bundleID,
             QString("com.tinyspeck.slackmacgap"));
}

void AppIdentityTest::unknownApplicationsKeepTheirId() {
    DesktopEntryIndex index({m_system}, {});
    AppIdentityResolver resolver(index, AppAliases::builtIn(), 0, "own", m_dir.filePath("noproc"));
    RunningApp a = resolver.resolve({"", "", "mytool", "MyTool", 0});
    QCOMPARE(a.bundleID, QString("mytool"));
    QCOMPARE(a.localizedName, QString("My Tool"));
    QCOMPARE(category(a.bundleID).displayName, QString("Other"));

    a = resolver.resolve({"", "", "strange", "Strange-App", 0}); // no entry at all
    QCOMPARE(a.bundleID, QString("strange-app"));
    QCOMPARE(a.localizedName, QString("Strange-App"));

    a = resolver.resolve({}); // a window that says nothing
    QCOMPARE(a.bundleID, QString());
}

void AppIdentityTest::ownWindows() {
    DesktopEntryIndex index({m_system}, {});
    AppIdentityResolver resolver(index, AppAliases::builtIn(), 4242, "com.mindmeter.Mindmeter",
                                 m_dir.filePath("noproc"));
    QCOMPARE(resolver.resolve({"", "", "whatever", "Whatever", 4242}).bundleID,
             QString("com.mindmeter.Mindmeter"));
    // Another instance's windows, recognised by their class.
    QCOMPARE(resolver.resolve({"", "", "mindmeter", "mindmeter", 1}).bundleID,
             QString("com.mindmeter.Mindmeter"));
}

void AppIdentityTest::aliasTableCoversCommonApplications() {
    const AppAliases& table = AppAliases::builtIn();
    QVERIFY2(table.applicationCount() >= 150,
             qPrintable(QString::number(table.applicationCount())));
    QVERIFY2(table.shadowedNames().isEmpty(), qPrintable(table.shadowedNames().join(' ')));

    // Every identifier lands in a real category, never "Other", apart from this program.
    for (const AppAliases::Alias& a : table.aliases())
        if (a.identifier != "com.mindmeter.Mindmeter")
            QVERIFY2(category(a.identifier).displayName != "Other", qPrintable(a.identifier));

    // The desktop entries Debian's packages install here: an application the table knows by
    // any of its names is tracked the same whether its window reports the entry's id (a
    // GTK application id, a native Wayland app_id) or its X11 class.
    DesktopEntryIndex installed({QStringLiteral("/usr/share")}, {});
    AppIdentityResolver resolver(installed, table, 0, "own", m_dir.filePath("noproc"));
    QStringList checked;
    QDirIterator it(QStringLiteral("/usr/share/applications"), {QStringLiteral("*.desktop")},
                    QDir::Files);
    while (it.hasNext()) {
        const QString id = QFileInfo(it.next()).completeBaseName();
        const std::optional<DesktopEntry> entry = installed.byId(id);
        if (!entry)
            continue;
        const QString wmClass = entry->startupWMClass.isEmpty() ? id : entry->startupWMClass;
        const auto known = table.find(id) ? table.find(id) : table.find(wmClass);
        if (!known)
            continue;
        const RunningApp byAppId = resolver.resolve({id, "", "", "", 0});
        const RunningApp byClass = resolver.resolve({"", "", wmClass.toLower(), wmClass, 0});
        QVERIFY2(byAppId.bundleID == known->identifier, qPrintable(id));
        QVERIFY2(byClass.bundleID == known->identifier, qPrintable(id + " / " + wmClass));
        QCOMPARE(byClass.localizedName, byAppId.localizedName);
        checked << id;
    }
    // The install script installs at least xterm.
    QVERIFY2(checked.contains("debian-xterm"), qPrintable(checked.join(' ')));
}

void AppIdentityTest::aliasTableParsing() {
    const AppAliases t = AppAliases::fromTable("# header\n"
                                               "com.a.One\tOne\tone ONE-alt\n"
                                               "\n"
                                               "missing-columns\tx\n"
                                               "com.b.Two\tTwo\t   \n"
                                               "com.c.Three\tThree\tthree\n"
                                               "com.d.Four\tFour\tfour one\n");
    QCOMPARE(t.applicationCount(), 3);
    QCOMPARE(t.shadowedNames(), QStringList{"one"});
    QCOMPARE(t.find("One")->identifier, QString("com.d.Four"));
    QCOMPARE(t.find("one-alt")->name, QString("One"));
    QVERIFY(!t.find("missing-columns"));
    QVERIFY(!t.find(""));
    QCOMPARE(t.find("THREE")->identifier, QString("com.c.Three"));
}

QTEST_GUILESS_MAIN(AppIdentityTest)
#include "tst_appidentity.moc"
