#include "platform/linux/FirefoxTabSource.h"

#include <lz4.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

namespace {

// The mozLz4 form of `json`, written with liblz4 here rather than by the code under test.
QByteArray mozLz4(const QByteArray& json) {
    QByteArray block(LZ4_compressBound(int(json.size())), Qt::Uninitialized);
    const int n =
        LZ4_compress_default(json.constData(), block.data(), int(json.size()), int(block.size()));
    block.truncate(n);
    QByteArray file("mozLz40\0", 8);
    const quint32 size = quint32(json.size());
    for (int i = 0; i < 4; ++i)
        file.append(char((size >> (8 * i)) & 0xff));
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

const RunningApp firefox{QStringLiteral("org.mozilla.firefox"), QStringLiteral("Firefox"), true,
                         4242};

// Sets a file's modification time.
bool setModified(const QString& path, const QDateTime& time) {
    QFile f(path);
    return f.open(QIODevice::ReadWrite) && f.setFileTime(time, QFileDevice::FileModificationTime);
}

} // namespace

class FirefoxTabSourceTest : public QObject {
    Q_OBJECT
private slots:
    void init();

    void selectedTabOfSelectedWindow_data();
    void selectedTabOfSelectedWindow();
    void damagedFilesYieldNone_data();
    void damagedFilesYieldNone();
    void oversizedFilesAreNotRead();
    void profileOfTheFrontProcessWins();
    void packagingsAndBrowsers();

private:
    // A profile listed in the root's profiles.ini; returns its folder.
    QString addProfile(const QString& root, const QString& name);
    void writeSession(const QString& profile, const QByteArray& bytes);
    QString root() const { return m_home->filePath(".mozilla/firefox"); }

    std::unique_ptr<QTemporaryDir> m_home;
    QString m_profile;
};

void FirefoxTabSourceTest::init() {
    m_home = std::make_unique<QTemporaryDir>();
    QVERIFY(m_home->isValid());
    m_profile = addProfile(root(), "abcd1234.default-release");
}

QString FirefoxTabSourceTest::addProfile(const QString& rootPath, const QString& name) {
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

void FirefoxTabSourceTest::writeSession(const QString& profile, const QByteArray& bytes) {
    // As Firefox does: a new file renamed over the old one.
    const QString path = profile + "/sessionstore-backups/recovery.jsonlz4";
    QFile tmp(path + ".tmp");
    QVERIFY(tmp.open(QIODevice::WriteOnly));
    tmp.write(bytes);
    tmp.close();
    QVERIFY(::rename(QFile::encodeName(tmp.fileName()).constData(),
                     QFile::encodeName(path).constData()) == 0);
}

void FirefoxTabSourceTest::selectedTabOfSelectedWindow_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("expected"); // empty: none

    const QJsonObject mail = tab({"https://mail.example.org/"});
    const QJsonObject chat = tab({"https://chatgpt.com/c/1"});
    const QJsonObject meet = tab({"https://meet.google.com/abc"});
    QTest::newRow("second tab of one window")
        << session({window({mail, chat, meet}, 2)}, 1) << "https://chatgpt.com/c/1";
    QTest::newRow("selected window of several")
        << session({window({mail}, 1), window({mail, meet}, 2), window({chat}, 1)}, 2)
        << "https://meet.google.com/abc";
    QTest::newRow("went back in the tab's history")
        << session(
               {window({tab({"https://a.example/", "https://claude.ai/", "https://c.example/"}, 2)},
                       1)},
               1)
        << "https://claude.ai/";
    QTest::newRow("no index: the last entry")
        << session({window({tab({"https://a.example/", "https://poe.com/"})}, 1)}, 1)
        << "https://poe.com/";
    QTest::newRow("index past the end is clamped")
        << session({window({tab({"https://a.example/", "https://poe.com/"}, 9)}, 1)}, 1)
        << "https://poe.com/";
    QTest::newRow("no selected window") << session({window({chat}, 1)}, 0) << "";
    QTest::newRow("selected window missing") << session({window({chat}, 1)}, 2) << "";
    QTest::newRow("selected tab missing") << session({window({chat}, 3)}, 1) << "";
    QTest::newRow("selected tab not whole") << session({window({chat}, 1.5)}, 1) << "";
    QTest::newRow("no windows") << session({}, 1) << "";
    QTest::newRow("tab without history") << session({window({tab({})}, 1)}, 1) << "";
    QTest::newRow("address not text")
        << QByteArray(R"({"windows":[{"tabs":[{"entries":[{"url":7}]}],"selected":1}],)"
                      R"("selectedWindow":1})")
        << "";
    QTest::newRow("a list at the top") << QByteArray("[1,2,3]") << "";
    QTest::newRow("not JSON") << QByteArray("{\"windows\": [") << "";
}

void FirefoxTabSourceTest::selectedTabOfSelectedWindow() {
    QFETCH(QByteArray, json);
    QFETCH(QString, expected);
    writeSession(m_profile, mozLz4(json));
    FirefoxTabSource source({root()});
    const std::optional<QString> url = source.activeTabURL(firefox);
    if (expected.isEmpty())
        QCOMPARE(url, std::nullopt);
    else
        QCOMPARE(url, expected);
}

void FirefoxTabSourceTest::damagedFilesYieldNone_data() {
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray good = oneTab("https://claude.ai/");
    QByteArray wrongMagic = good;
    wrongMagic[3] = 'X';
    QByteArray sizeTooLarge = good;
    sizeTooLarge[8] = char(quint8(sizeTooLarge[8]) + 1);
    QByteArray hugeSize = good;
    hugeSize[11] = char(0x7f);
    QByteArray flipped = good;
    for (qsizetype i = 12; i < flipped.size(); i += 3)
        flipped[i] = char(~quint8(flipped[i]));

    QTest::newRow("empty file") << QByteArray();
    QTest::newRow("cut in half") << good.left(good.size() / 2);
    QTest::newRow("last byte missing") << good.chopped(1);
    QTest::newRow("wrong magic") << wrongMagic;
    QTest::newRow("size larger than the content") << sizeTooLarge;
    QTest::newRow("size beyond the cap") << hugeSize;
    QTest::newRow("damaged block") << flipped;
    QTest::newRow("uncompressed JSON") << session({window({tab({"https://claude.ai/"})}, 1)}, 1);
}

void FirefoxTabSourceTest::damagedFilesYieldNone() {
    QFETCH(QByteArray, bytes);
    writeSession(m_profile, bytes);
    FirefoxTabSource source({root()});
    QCOMPARE(source.activeTabURL(firefox), std::nullopt);
    // The same source recovers as soon as the file is whole again.
    writeSession(m_profile, oneTab("https://claude.ai/"));
    QCOMPARE(source.activeTabURL(firefox), "https://claude.ai/");
}

void FirefoxTabSourceTest::oversizedFilesAreNotRead() {
    // Many tabs: a large document that compresses well.
    QList<QJsonObject> tabs;
    for (int i = 0; i < 2000; ++i)
        tabs.append(tab({QStringLiteral("https://example.org/page/%1").arg(i)}));
    const QByteArray json = session({window(tabs, 2000)}, 1);
    const QByteArray file = mozLz4(json);
    writeSession(m_profile, file);

    FirefoxTabSource fits({root()}, {file.size(), json.size()});
    QCOMPARE(fits.activeTabURL(firefox), "https://example.org/page/1999");
    FirefoxTabSource fileTooLarge({root()}, {file.size() - 1, json.size()});
    QCOMPARE(fileTooLarge.activeTabURL(firefox), std::nullopt);
    FirefoxTabSource contentTooLarge({root()}, {file.size(), json.size() - 1});
    QCOMPARE(contentTooLarge.activeTabURL(firefox), std::nullopt);
}

void FirefoxTabSourceTest::profileOfTheFrontProcessWins() {
    const QString work = addProfile(root(), "work");
    const QString other = addProfile(root(), "other");
    auto lock = [](const QString& profile, const QByteArray& target) {
        QVERIFY(::symlink(target.constData(), QFile::encodeName(profile + "/lock")) == 0);
    };
    writeSession(m_profile, oneTab("https://default.example/"));
    writeSession(work, oneTab("https://work.example/"));
    writeSession(other, oneTab("https://other.example/"));
    setModified(work + "/sessionstore-backups/recovery.jsonlz4",
                QDateTime::currentDateTime().addSecs(-3600));
    setModified(other + "/sessionstore-backups/recovery.jsonlz4",
                QDateTime::currentDateTime().addSecs(60));
    FirefoxTabSource source({root()});

    // Nothing locked: the most recently written.
    QCOMPARE(source.activeTabURL(firefox), "https://other.example/");
    // A running profile beats a newer file of one that is not running.
    lock(m_profile, "127.0.1.1:+999999");
    QCOMPARE(source.activeTabURL(firefox), "https://default.example/");
    // The profile the front process holds beats everything.
    lock(work, "127.0.1.1:+" + QByteArray::number(firefox.pid));
    QCOMPARE(source.activeTabURL(firefox), "https://work.example/");
    // A second Firefox process in front reads its own profile.
    RunningApp second = firefox;
    second.pid = 999999;
    QCOMPARE(source.activeTabURL(second), "https://default.example/");
}

void FirefoxTabSourceTest::packagingsAndBrowsers() {
    const QString home = m_home->path();
    const QStringList roots = FirefoxTabSource::profileRootsIn(home, home + "/.config");
    QVERIFY(roots.contains(home + "/.mozilla/firefox"));
    QVERIFY(roots.contains(home + "/.var/app/org.mozilla.firefox/.mozilla/firefox"));
    QVERIFY(roots.contains(home + "/snap/firefox/common/.mozilla/firefox"));

    // The layout newer releases write under ~/.config: an [Install*] section names its
    // profile's path in Default=, while Default=1 in a [Profile*] section is only a flag.
    {
        const QString config = home + "/.config/mozilla/firefox";
        for (const char* name : {"flagged.default", "installed.default-release"})
            QDir().mkpath(config + "/" + name + "/sessionstore-backups");
        QFile ini(config + "/profiles.ini");
        QVERIFY(ini.open(QIODevice::WriteOnly));
        ini.write("[Install4F96D1932A9F858E]\nDefault=installed.default-release\nLocked=1\n\n"
                  "[Profile0]\nName=default\nIsRelative=1\nPath=flagged.default\nDefault=1\n\n"
                  "[General]\nStartWithLastProfile=1\nVersion=2\n");
        ini.close();
        FirefoxTabSource configSource({config});
        writeSession(config + "/flagged.default", oneTab("https://poe.com/"));
        QCOMPARE(configSource.activeTabURL(firefox), "https://poe.com/");
        writeSession(config + "/installed.default-release", oneTab("https://grok.com/"));
        setModified(config + "/installed.default-release/sessionstore-backups/recovery.jsonlz4",
                    QDateTime::currentDateTime().addSecs(60));
        QCOMPARE(configSource.activeTabURL(firefox), "https://grok.com/");
        QVERIFY(QDir(config).removeRecursively());
    }

    // Only the Snap profile has a session: found among all the places.
    const QString snap = addProfile(home + "/snap/firefox/common/.mozilla/firefox", "snapprof");
    writeSession(snap, oneTab("https://bolt.new/"));
    FirefoxTabSource source(roots);
    QCOMPARE(source.activeTabURL(firefox), "https://bolt.new/");

    // A profile outside the root, named by an absolute path.
    const QString elsewhere = m_home->filePath("profiles/abs");
    QDir().mkpath(elsewhere + "/sessionstore-backups");
    const QString flatpakRoot = home + "/.var/app/org.mozilla.firefox/.mozilla/firefox";
    QDir().mkpath(flatpakRoot);
    QFile ini(flatpakRoot + "/profiles.ini");
    QVERIFY(ini.open(QIODevice::WriteOnly));
    ini.write("[Profile0]\nName=abs\nIsRelative=0\nPath=" + elsewhere.toUtf8() + "\n");
    ini.close();
    writeSession(elsewhere, oneTab("https://lovable.dev/"));
    setModified(elsewhere + "/sessionstore-backups/recovery.jsonlz4",
                QDateTime::currentDateTime().addSecs(60));
    QCOMPARE(source.activeTabURL(firefox), "https://lovable.dev/");

    // Browsers with no honest source are never asked, whatever is on disk.
    for (const char* id : {"org.chromium.Chromium", "org.mozilla.Thunderbird", ""}) {
        const RunningApp other{QString::fromLatin1(id), QStringLiteral("Other"), true, 7};
        QVERIFY2(!source.canAsk(other), id);
        QCOMPARE(source.activeTabURL(other), std::nullopt);
    }
}

QTEST_GUILESS_MAIN(FirefoxTabSourceTest)
#include "tst_firefoxtabsource.moc"
