// The front browser's tab, from the session files Firefox and the Chromium family write:
// Firefox's written here with liblz4, Chromium's the real logs of Debian's Chromium 156 that
// seed the session-log fuzz target.

#include "platform/CompositeTabSource.h"
#include "platform/linux/ChromiumTabSource.h"
#include "platform/linux/FirefoxTabSource.h"

#include <lz4.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <unistd.h>

namespace {

RunningApp browser(const QString& id, qint64 pid = 4242) {
    return RunningApp{id, id, true, pid};
}
const RunningApp firefox = browser(QStringLiteral("org.mozilla.firefox"));

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

QByteArray realLog(const QString& name) {
    QFile f(QStringLiteral(MINDMETER_SNSS_INPUTS "/chromium156-") + name);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}
const QString firstPage = QStringLiteral("http://127.0.0.1:8765/a.html");
const QString secondPage = QStringLiteral("http://127.0.0.1:8765/c/abc-123/");

// The mozLz4 form of `json`.
QByteArray mozLz4(const QByteArray& json) {
    QByteArray block(LZ4_compressBound(int(json.size())), Qt::Uninitialized);
    block.truncate(
        LZ4_compress_default(json.constData(), block.data(), int(json.size()), int(block.size())));
    QByteArray file("mozLz40\0", 8);
    for (int i = 0; i < 4; ++i)
        file.append(char((quint32(json.size()) >> (8 * i)) & 0xff));
    return file + block;
}

// A tab whose back/forward list holds `urls`, at 1-based `index` (0: none stored).
QJsonObject tab(const QStringList& urls, int index = 0) {
    QJsonArray entries;
    for (const QString& url : urls)
        entries.append(QJsonObject{{"url", url}, {"title", "Page"}});
    QJsonObject t{{"entries", entries}};
    if (index > 0)
        t.insert("index", index);
    return t;
}

QJsonObject window(const QList<QJsonObject>& tabs, const QJsonValue& selected) {
    QJsonArray array;
    for (const QJsonObject& t : tabs)
        array.append(t);
    return QJsonObject{{"tabs", array}, {"selected", selected}};
}

QByteArray session(const QList<QJsonObject>& windows, const QJsonValue& selectedWindow) {
    QJsonArray array;
    for (const QJsonObject& w : windows)
        array.append(w);
    return QJsonDocument(QJsonObject{{"version", QJsonArray{"sessionrestore", 1}},
                                     {"windows", array},
                                     {"selectedWindow", selectedWindow},
                                     {"_closedWindows", QJsonArray()}})
        .toJson(QJsonDocument::Compact);
}

// The session file of one window with one tab showing `url`.
QByteArray oneTab(const QString& url) {
    return mozLz4(session({window({tab({url})}, 1)}, 1));
}

} // namespace

class TabSourcesTest : public QObject {
    Q_OBJECT
private slots:
    void init();

    void activeTab_data();
    void activeTab();
    void firefoxPackagings();
    void chromiumEachBrowserInEachPackaging_data();
    void chromiumEachBrowserInEachPackaging();
    void chromiumProfileInUse();
    void compositeAnswersOffTheCallersThread();

private:
    // A profile listed in the root's profiles.ini; returns its folder.
    QString addProfile(const QString& root, const QString& name);
    // As Firefox does: a new file renamed over the old one.
    void writeSession(const QString& profile, const QByteArray& bytes);
    QString home() const { return m_home->path(); }
    QString root() const { return m_home->filePath(".mozilla/firefox"); }

    std::unique_ptr<QTemporaryDir> m_home;
    QString m_profile;
};

void TabSourcesTest::init() {
    m_home = std::make_unique<QTemporaryDir>();
    QVERIFY(m_home->isValid());
    m_profile = addProfile(root(), "abcd1234.default-release");
}

QString TabSourcesTest::addProfile(const QString& rootPath, const QString& name) {
    const QString folder = rootPath + u'/' + name;
    QDir().mkpath(folder + "/sessionstore-backups");
    QFile ini(rootPath + "/profiles.ini");
    const bool fresh = !ini.exists();
    ini.open(QIODevice::Append);
    if (fresh)
        ini.write("[General]\nStartWithLastProfile=1\nVersion=2\n\n");
    ini.write("[Profile" + QByteArray::number(qHash(name) % 1000) + "]\nName=" + name.toUtf8() +
              "\nIsRelative=1\nPath=" + name.toUtf8() + "\n\n");
    return folder;
}

void TabSourcesTest::writeSession(const QString& profile, const QByteArray& bytes) {
    const QString path = profile + "/sessionstore-backups/recovery.jsonlz4";
    QVERIFY(write(path + ".tmp", bytes));
    QVERIFY(::rename(QFile::encodeName(path + ".tmp").constData(),
                     QFile::encodeName(path).constData()) == 0);
}

void TabSourcesTest::activeTab_data() {
    QTest::addColumn<bool>("chromium");
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("expected"); // empty: none
    const auto ff = [](const char* tag, const QByteArray& json, const QString& expected) {
        QTest::newRow(tag) << false << mozLz4(json) << expected;
    };
    const QJsonObject mail = tab({"https://mail.example.org/"});
    const QJsonObject chat = tab({"https://chatgpt.com/c/1"});
    const QJsonObject meet = tab({"https://meet.google.com/abc"});
    ff("selected window of several",
       session({window({mail}, 1), window({mail, meet}, 2), window({chat}, 1)}, 2),
       "https://meet.google.com/abc");
    ff("went back in the tab's history",
       session({window({tab({"https://a.example/", "https://claude.ai/", "https://c.example/"}, 2)},
                       1)},
               1),
       "https://claude.ai/");
    ff("no index: the last entry",
       session({window({tab({"https://a.example/", "https://poe.com/"})}, 1)}, 1),
       "https://poe.com/");
    ff("selected window missing", session({window({chat}, 1)}, 2), "");
    ff("not JSON", "{\"windows\": [", "");

    // Damaged files (caught half-written, say).
    const QByteArray good = oneTab("https://claude.ai/");
    QByteArray wrongMagic = good, hugeSize = good;
    wrongMagic[3] = 'X';
    hugeSize[11] = char(0x7f);
    QTest::newRow("cut in half") << false << good.left(good.size() / 2) << "";
    QTest::newRow("wrong magic") << false << wrongMagic << "";
    QTest::newRow("size beyond the cap") << false << hugeSize << "";
    QTest::newRow("uncompressed JSON") << false << session({window({chat}, 1)}, 1) << "";

    const auto chromium = [](const char* tag, const QByteArray& log, const QString& expected) {
        QTest::newRow(tag) << true << log << expected;
    };
    chromium("first page", realLog("1-start"), firstPage);
    chromium("navigated in the tab", realLog("2-navigated"), secondPage);
    chromium("new tab, page never loaded", realLog("3-newtab-ai"), "https://chatgpt.com/c/xyz");
    chromium("back to the first tab", realLog("4-firsttab"), secondPage);
    chromium("new window", realLog("5-newwindow-meeting"), "https://meet.google.com/abc-defg-hij");
    chromium("first window active again", realLog("6-firstwindow"), secondPage);
    chromium("back in the history", realLog("7-back"), firstPage);
    chromium("other tab closed", realLog("8-closedtab"), firstPage);
    // Caught while the browser writes the navigation: the commands before it still count.
    const QByteArray navigated = realLog("2-navigated");
    chromium("cut inside the last navigation", navigated.left(navigated.indexOf("c/abc-123")),
             firstPage);
    QByteArray encrypted = realLog("7-back");
    encrypted[4] = 4; // the encrypted form of the same version
    chromium("encrypted log", encrypted, "");
    chromium("not a session log", "{\"windows\":[]}", "");
}

void TabSourcesTest::activeTab() {
    QFETCH(bool, chromium);
    QFETCH(QByteArray, file);
    QFETCH(QString, expected);
    const std::optional<QString> want = expected.isEmpty() ? std::nullopt : std::optional(expected);
    if (chromium) {
        QVERIFY(!realLog("1-start").isEmpty());
        const QString dir = home() + "/.config/chromium";
        QVERIFY(write(dir + "/Default/Sessions/Session_13439875060378179", file));
        ChromiumTabSource source({{"org.chromium.Chromium", {dir}}});
        QCOMPARE(source.activeTabURL(browser("org.chromium.Chromium")), want);
        return;
    }
    writeSession(m_profile, file);
    FirefoxTabSource source({root()});
    QCOMPARE(source.activeTabURL(firefox), want);
    // The same source recovers as soon as the file is whole again.
    writeSession(m_profile, oneTab("https://claude.ai/"));
    QCOMPARE(source.activeTabURL(firefox), "https://claude.ai/");
}

void TabSourcesTest::firefoxPackagings() {
    const QStringList roots = FirefoxTabSource::profileRootsIn(home(), home() + "/.config");
    const QString flatpakRoot = home() + "/.var/app/org.mozilla.firefox/.mozilla/firefox";
    const QString snapRoot = home() + "/snap/firefox/common/.mozilla/firefox";
    QVERIFY(roots.contains(root()) && roots.contains(flatpakRoot) && roots.contains(snapRoot));

    // The layout newer releases write under ~/.config: an [Install*] section names its
    // profile's path in Default=, while Default=1 in a [Profile*] section is only a flag.
    const QString config = home() + "/.config/mozilla/firefox";
    const QString installed = config + "/installed.default-release";
    QVERIFY(QDir().mkpath(installed + "/sessionstore-backups"));
    QVERIFY(write(config + "/profiles.ini",
                  "[Install4F96D1932A9F858E]\nDefault=installed.default-release\nLocked=1\n\n"
                  "[Profile0]\nName=default\nIsRelative=1\nPath=flagged.default\nDefault=1\n\n"
                  "[General]\nStartWithLastProfile=1\nVersion=2\n"));
    QVERIFY(write(config + "/flagged.default/sessionstore-backups/recovery.jsonlz4",
                  oneTab("https://poe.com/")));
    FirefoxTabSource configSource({config});
    QCOMPARE(configSource.activeTabURL(firefox), "https://poe.com/");
    QVERIFY(
        write(installed + "/sessionstore-backups/recovery.jsonlz4", oneTab("https://grok.com/")));
    QVERIFY(setModified(installed + "/sessionstore-backups/recovery.jsonlz4", 60));
    QCOMPARE(configSource.activeTabURL(firefox), "https://grok.com/");
    QVERIFY(QDir(config).removeRecursively());

    // Only the Snap profile has a session: found among all the places.
    writeSession(addProfile(snapRoot, "snapprof"), oneTab("https://bolt.new/"));
    FirefoxTabSource source(roots);
    QCOMPARE(source.activeTabURL(firefox), "https://bolt.new/");

    // Browsers with no honest source are never asked, whatever is on disk.
    QVERIFY(!source.canAsk(browser("org.mozilla.Thunderbird")));
    QCOMPARE(source.activeTabURL(browser("org.chromium.Chromium")), std::nullopt);
}

void TabSourcesTest::chromiumEachBrowserInEachPackaging_data() {
    QTest::addColumn<QString>("identifier");
    QTest::addColumn<QString>("userDataDir"); // below home
    const auto row = [](const char* name, const char* id, const char* dir) {
        QTest::newRow(name) << QString::fromLatin1(id) << QString::fromLatin1(dir);
    };
    row("Chromium Snap", "org.chromium.Chromium", "snap/chromium/common/chromium");
    row("Chrome Flatpak", "com.google.Chrome", ".var/app/com.google.Chrome/config/google-chrome");
    row("Brave Snap", "com.brave.Browser",
        "snap/brave/current/.config/BraveSoftware/Brave-Browser");
    row("Edge", "com.microsoft.edgemac", ".config/microsoft-edge");
}

void TabSourcesTest::chromiumEachBrowserInEachPackaging() {
    QFETCH(QString, identifier);
    QFETCH(QString, userDataDir);
    const QString dir = home() + u'/' + userDataDir;
    QVERIFY(write(dir + "/Default/Sessions/Session_1", realLog("4-firsttab")));
    // An encrypted copy beside it is ignored.
    QVERIFY(write(dir + "/Default/Sessions_Encrypted/Session_2", "x"));
    ChromiumTabSource source(ChromiumTabSource::browsersIn(home(), home() + "/.config"));
    for (const char* id : {"org.chromium.Chromium", "com.google.Chrome", "com.brave.Browser",
                           "com.microsoft.edgemac", "com.vivaldi.Vivaldi"}) {
        const RunningApp front = browser(QString::fromLatin1(id));
        QVERIFY(source.canAsk(front));
        // Only the browser in front picks whose folders are read.
        QCOMPARE(source.activeTabURL(front),
                 front.bundleID == identifier ? std::optional(secondPage) : std::nullopt);
    }
    QVERIFY(!source.canAsk(firefox));
    QVERIFY(!source.canAsk(browser("")));
}

void TabSourcesTest::chromiumProfileInUse() {
    const QString dir = home() + "/.config/google-chrome";
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
}

void TabSourcesTest::compositeAnswersOffTheCallersThread() {
    const QString dir = home() + "/.config/chromium";
    QVERIFY(write(dir + "/Default/Sessions/Session_1", realLog("3-newtab-ai")));
    FirefoxTabSource firefoxSource(QStringList{home() + "/no-firefox"});
    ChromiumTabSource chromium({{"org.chromium.Chromium", {dir}}});
    CompositeTabSource tabs({&firefoxSource, &chromium});
    QVERIFY(tabs.canAsk(firefox) && !tabs.canAsk(browser("org.gnome.TextEditor")));

    QList<std::pair<std::optional<QString>, QThread*>> answers;
    QObject context;
    auto ask = [&](const RunningApp& front, QObject* receiver) {
        tabs.requestActiveTabURL(front, receiver, [&](std::optional<QString> url) {
            answers.append({url, QThread::currentThread()});
        });
    };
    // A receiver that is gone by the time the answer is back never hears it.
    auto gone = std::make_unique<QObject>();
    ask(browser("org.chromium.Chromium"), gone.get());
    gone.reset();
    ask(browser("org.chromium.Chromium"), &context);
    ask(firefox, &context); // no profile: no address
    QTRY_COMPARE_WITH_TIMEOUT(answers.size(), 2, 30000);
    QCOMPARE(answers, (QList<std::pair<std::optional<QString>, QThread*>>{
                          {"https://chatgpt.com/c/xyz", QThread::currentThread()},
                          {std::nullopt, QThread::currentThread()}}));
}

QTEST_GUILESS_MAIN(TabSourcesTest)
#include "tst_tabsources.moc"
