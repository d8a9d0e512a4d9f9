#include "platform/CompositeTabSource.h"
#include "platform/linux/ChromiumTabSource.h"
#include "platform/linux/FirefoxTabSource.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QUrl>

#include <unistd.h>

// Session logs written by Debian's Chromium 156 under a private X server: a page, a
// navigation in its tab, a new tab (chatgpt.com), a switch back to the first tab, a new window
// (meet.google.com), the first window in front again, a step back in its history, and a
// second tab closed. They are also the seeds of the session-log fuzz target.
namespace {

QByteArray realLog(const QString& name) {
    QFile f(QStringLiteral(MINDMETER_SNSS_INPUTS "/chromium156-") + name);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

const QString firstPage = QStringLiteral("http://127.0.0.1:8765/a.html");
const QString secondPage = QStringLiteral("http://127.0.0.1:8765/c/abc-123/");

RunningApp browser(const QString& id, qint64 pid = 4242) {
    return RunningApp{id, id, true, pid};
}

bool write(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

bool setModified(const QString& path, qint64 secondsFromNow) {
    QFile f(path);
    return f.open(QIODevice::ReadWrite) &&
           f.setFileTime(QDateTime::currentDateTime().addSecs(secondsFromNow),
                         QFileDevice::FileModificationTime);
}

} // namespace

class ChromiumTabSourceTest : public QObject {
    Q_OBJECT
private slots:
    void init();

    void realSessionLogs_data();
    void realSessionLogs();
    void eachBrowserInEachPackaging_data();
    void eachBrowserInEachPackaging();
    void profileInUseIsRead();
    void compositeAnswersOffTheCallersThread();
    void realChromium();

private:
    QString home() const { return m_home->path(); }
    std::unique_ptr<QTemporaryDir> m_home;
};

void ChromiumTabSourceTest::init() {
    m_home = std::make_unique<QTemporaryDir>();
    QVERIFY(m_home->isValid());
}

void ChromiumTabSourceTest::realSessionLogs_data() {
    QTest::addColumn<QByteArray>("log");
    QTest::addColumn<QString>("expected"); // empty: none

    QTest::newRow("first page") << realLog("1-start") << firstPage;
    QTest::newRow("navigated in the tab") << realLog("2-navigated") << secondPage;
    QTest::newRow("new tab, page never loaded")
        << realLog("3-newtab-ai") << QStringLiteral("https://chatgpt.com/c/xyz");
    QTest::newRow("back to the first tab") << realLog("4-firsttab") << secondPage;
    QTest::newRow("new window") << realLog("5-newwindow-meeting")
                                << QStringLiteral("https://meet.google.com/abc-defg-hij");
    QTest::newRow("first window active again") << realLog("6-firstwindow") << secondPage;
    QTest::newRow("back in the history") << realLog("7-back") << firstPage;
    QTest::newRow("other tab closed") << realLog("8-closedtab") << firstPage;

    // Caught while the browser writes the navigation: the commands before it still count.
    const QByteArray navigated = realLog("2-navigated");
    QTest::newRow("cut inside the last navigation")
        << navigated.left(navigated.indexOf("c/abc-123")) << firstPage;
    QByteArray encrypted = realLog("7-back");
    encrypted[4] = 4; // the encrypted form of the same version
    QTest::newRow("encrypted log") << encrypted << "";
    QTest::newRow("not a session log") << QByteArray("{\"windows\":[]}") << "";
}

void ChromiumTabSourceTest::realSessionLogs() {
    QFETCH(QByteArray, log);
    QFETCH(QString, expected);
    QVERIFY(!realLog("1-start").isEmpty());
    const QString dir = home() + "/.config/chromium";
    QVERIFY(write(dir + "/Default/Sessions/Session_13439875060378179", log));
    ChromiumTabSource source({{"org.chromium.Chromium", {dir}}});
    const std::optional<QString> url = source.activeTabURL(browser("org.chromium.Chromium"));
    if (expected.isEmpty())
        QCOMPARE(url, std::nullopt);
    else
        QCOMPARE(url, expected);
}

void ChromiumTabSourceTest::eachBrowserInEachPackaging_data() {
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QString>("userDataDir"); // below home
    const auto row = [](const char* name, const char* id, const char* dir) {
        QTest::newRow(name) << QString::fromLatin1(id) << QString::fromLatin1(dir);
    };
    row("Chromium", "org.chromium.Chromium", ".config/chromium");
    row("Chromium Snap", "org.chromium.Chromium", "snap/chromium/common/chromium");
    row("Chrome", "com.google.Chrome", ".config/google-chrome");
    row("Chrome Flatpak", "com.google.Chrome", ".var/app/com.google.Chrome/config/google-chrome");
    row("Brave Snap", "com.brave.Browser",
        "snap/brave/current/.config/BraveSoftware/Brave-Browser");
    row("Edge", "com.microsoft.edgemac", ".config/microsoft-edge");
    row("Vivaldi Flatpak", "com.vivaldi.Vivaldi", ".var/app/com.vivaldi.Vivaldi/config/vivaldi");
}

void ChromiumTabSourceTest::eachBrowserInEachPackaging() {
    QFETCH(QString, identifier);
    QFETCH(QString, userDataDir);
    QVERIFY(
        write(home() + u'/' + userDataDir + "/Default/Sessions/Session_1", realLog("4-firsttab")));
    // An encrypted copy beside it is ignored.
    QVERIFY(write(home() + u'/' + userDataDir + "/Default/Sessions_Encrypted/Session_2", "x"));
    ChromiumTabSource source(ChromiumTabSource::browsersIn(home(), home() + "/.config"));

    for (const char* id : {"org.chromium.Chromium", "com.google.Chrome", "com.brave.Browser",
                           "com.microsoft.edgemac", "com.vivaldi.Vivaldi"}) {
        const RunningApp front = browser(QString::fromLatin1(id));
        QVERIFY(source.canAsk(front));
        // Only the browser in front picks whose folders are read.
        QCOMPARE(source.activeTabURL(front),
                 front.bundleID == identifier ? std::optional(secondPage) : std::nullopt);
    }
    QVERIFY(!source.canAsk(browser("org.mozilla.firefox")));
    QVERIFY(!source.canAsk(browser("")));
}

void ChromiumTabSourceTest::profileInUseIsRead() {
    const QString dir = home() + "/.config/google-chrome";
    const QString flatpak = home() + "/.var/app/com.google.Chrome/config/google-chrome";
    ChromiumTabSource source(ChromiumTabSource::browsersIn(home(), home() + "/.config"));
    const RunningApp chrome = browser("com.google.Chrome");

    // Local State names the profile in use; a newer log of another profile is not read.
    QVERIFY(write(dir + "/Local State",
                  R"({"profile":{"last_used":"Profile 1","last_active_profiles":[]}})"));
    QVERIFY(write(dir + "/Profile 1/Sessions/Session_1", realLog("1-start")));
    QVERIFY(write(dir + "/Default/Sessions/Session_1", realLog("3-newtab-ai")));
    QVERIFY(setModified(dir + "/Profile 1/Sessions/Session_1", -3600));
    QCOMPARE(source.activeTabURL(chrome), firstPage);
    // Without Local State, the most recently written log of any profile.
    QVERIFY(QFile::remove(dir + "/Local State"));
    QCOMPARE(source.activeTabURL(chrome), "https://chatgpt.com/c/xyz");
    // Of two logs in one profile, the newest; before version 85 the log was "Current Session".
    QVERIFY(write(dir + "/Default/Sessions/Session_2", realLog("7-back")));
    QVERIFY(setModified(dir + "/Default/Sessions/Session_2", 60));
    QCOMPARE(source.activeTabURL(chrome), firstPage);
    QVERIFY(write(flatpak + "/Default/Current Session", realLog("5-newwindow-meeting")));
    QVERIFY(setModified(flatpak + "/Default/Current Session", 120));
    QCOMPARE(source.activeTabURL(chrome), "https://meet.google.com/abc-defg-hij");

    // A running browser holds its folder: the one the front process holds wins over newer logs.
    QVERIFY(::symlink("host-4242", QFile::encodeName(dir + "/SingletonLock")) == 0);
    QCOMPARE(source.activeTabURL(chrome), firstPage);
    QVERIFY(::symlink("host-777", QFile::encodeName(flatpak + "/SingletonLock")) == 0);
    QCOMPARE(source.activeTabURL(browser("com.google.Chrome", 777)),
             "https://meet.google.com/abc-defg-hij");
    // Only an encrypted log: nothing to read.
    const QString encrypted = home() + "/encrypted";
    QVERIFY(write(encrypted + "/Default/Sessions_Encrypted/Session_1", realLog("7-back")));
    ChromiumTabSource fresh({{"com.google.Chrome", {encrypted}}});
    QCOMPARE(fresh.activeTabURL(chrome), std::nullopt);
}

void ChromiumTabSourceTest::compositeAnswersOffTheCallersThread() {
    const QString dir = home() + "/.config/chromium";
    QVERIFY(write(dir + "/Default/Sessions/Session_1", realLog("3-newtab-ai")));
    FirefoxTabSource firefox(QStringList{home() + "/.mozilla/firefox"});
    ChromiumTabSource chromium({{"org.chromium.Chromium", {dir}}});
    CompositeTabSource tabs({&firefox, &chromium});
    QVERIFY(tabs.canAsk(browser("org.mozilla.firefox")));
    QVERIFY(tabs.canAsk(browser("org.chromium.Chromium")));
    QVERIFY(!tabs.canAsk(browser("org.gnome.TextEditor")));

    struct Answer {
        std::optional<QString> url;
        QThread* thread = nullptr;
    };
    QList<Answer> answers;
    QObject context;
    auto ask = [&](const QString& id, QObject* receiver) {
        tabs.requestActiveTabURL(browser(id), receiver, [&](std::optional<QString> url) {
            answers.append({url, QThread::currentThread()});
        });
    };
    // A receiver that is gone by the time the answer is back never hears it.
    auto gone = std::make_unique<QObject>();
    ask("org.chromium.Chromium", gone.get());
    gone.reset();
    ask("org.chromium.Chromium", &context);
    ask("org.mozilla.firefox", &context); // no profile: no address
    QTRY_COMPARE_WITH_TIMEOUT(answers.size(), 2, 30000);
    QCOMPARE(answers[0].url, "https://chatgpt.com/c/xyz");
    QCOMPARE(answers[1].url, std::nullopt);
    for (const Answer& a : answers)
        QCOMPARE(a.thread, QThread::currentThread());
}

void ChromiumTabSourceTest::realChromium() {
    // Debian's Chromium on the test's X server, with a profile of its own, showing local pages.
    QVERIFY2(qEnvironmentVariableIsSet("DISPLAY"), "run through run-with-xvfb.sh");
    const QString userData = home() + "/chromium";
    const auto page = [&](const QString& name) {
        const QString path = home() + "/pages/" + name + ".html";
        write(path, "<title>" + name.toUtf8() + "</title>" + name.toUtf8());
        return QUrl::fromLocalFile(path).toString();
    };
    const QString first = page("first"), second = page("second");
    const QStringList flags = {"--no-sandbox",
                               "--disable-gpu",
                               "--no-first-run",
                               "--disable-background-networking",
                               "--disable-component-update",
                               "--disable-sync",
                               "--password-store=basic",
                               "--user-data-dir=" + userData};
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home());
    QProcess chromium;
    chromium.setProcessEnvironment(env);
    chromium.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    chromium.start("chromium", flags + QStringList{first});
    QVERIFY2(chromium.waitForStarted(), "chromium is installed by scripts/install-deps.sh");
    const auto stop = qScopeGuard([&] {
        chromium.terminate();
        if (!chromium.waitForFinished(20000))
            chromium.kill();
    });

    ChromiumTabSource source({{"org.chromium.Chromium", {userData}}});
    const RunningApp front = browser("org.chromium.Chromium", chromium.processId());
    QTRY_COMPARE_WITH_TIMEOUT(source.activeTabURL(front), std::optional(first), 90000);
    // A second start hands the page to the running browser, which opens it in a new tab.
    QProcess opener;
    opener.setProcessEnvironment(env);
    opener.start("chromium", flags + QStringList{second});
    QVERIFY(opener.waitForFinished(60000));
    QTRY_COMPARE_WITH_TIMEOUT(source.activeTabURL(front), std::optional(second), 90000);
}

QTEST_GUILESS_MAIN(ChromiumTabSourceTest)
#include "tst_chromiumtabsource.moc"
