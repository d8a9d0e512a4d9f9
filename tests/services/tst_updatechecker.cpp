#include "LocalHttpServer.h"

#include "services/UpdateChecker.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <sys/mount.h>
#include <sys/stat.h>

#include <utility>

namespace {

class RecordingOpener final : public Opener {
public:
    bool open(const QUrl& url) override {
        opened.append(url);
        return true;
    }
    QList<QUrl> opened;
};

QByteArray sha256Hex(const QByteArray& data) {
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex();
}

QByteArray packageBytes() {
    QByteArray bytes;
    for (int i = 0; i < 200000; ++i)
        bytes.append(char((i * 7919) % 251));
    return bytes;
}

HttpAnswer manifest(const QByteArray& json, int status = 200) {
    return HttpAnswer::make(status, json, {{"Content-Type", "application/json"}});
}

} // namespace

// The update check and download against a local HTTP server on 127.0.0.1.
class UpdateCheckerTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void isNewer_data();
    void isNewer();
    void vendorUrls_data();
    void vendorUrls();
    void manifestVersions_data();
    void manifestVersions();
    void hostileManifestsChangeNothing_data();
    void hostileManifestsChangeNothing();
    void cleanup();
    void verifiedDownloadIsOpenedThenQuits_data();
    void verifiedDownloadIsOpenedThenQuits();
    void digestMismatchIsLoggedAndNothingIsKept_data();
    void digestMismatchIsLoggedAndNothingIsKept();
    void hostileDownloadsLeaveNothing_data();
    void hostileDownloadsLeaveNothing();

private:
    std::unique_ptr<UpdateChecker> makeChecker(const QString& vendor = {});
    UpdateChecker::CheckResult check(UpdateChecker& checker);
    std::optional<bool> download(UpdateChecker& checker);
    QStringList leftovers() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<LocalHttpServer> m_server;
    RecordingOpener m_opener;
    int m_quits = 0;
    bool m_mounted = false;
    std::unique_ptr<QTemporaryDir> m_shm;
};

void UpdateCheckerTest::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_server = std::make_unique<LocalHttpServer>();
    QVERIFY(m_server->listen());
    m_opener = RecordingOpener();
    m_quits = 0;
}

void UpdateCheckerTest::cleanup() {
    if (std::exchange(m_mounted, false))
        ::umount2(QFile::encodeName(m_dir->filePath("Downloads")).constData(), MNT_DETACH);
    m_shm.reset();
}

std::unique_ptr<UpdateChecker> UpdateCheckerTest::makeChecker(const QString& vendor) {
    UpdateChecker::Options options;
    options.vendorUrl = vendor.isEmpty() ? m_server->baseUrl() : vendor;
    options.downloadsFolder = m_dir->filePath("Downloads");
    options.stagingFolder = m_dir->filePath("staging");
    options.requestTimeoutMs = 1000;
    options.downloadStallTimeoutMs = 1000;
    options.downloadTimeoutMs = 3000;
    options.maxDownloadBytes = 256 * 1024;
    options.quitDelayMs = 0;
    options.quit = [this] { ++m_quits; };
    return std::make_unique<UpdateChecker>(m_opener, options);
}

UpdateChecker::CheckResult UpdateCheckerTest::check(UpdateChecker& checker) {
    std::optional<UpdateChecker::CheckResult> result;
    checker.check([&](const UpdateChecker::CheckResult& r) { result = r; });
    // Bounded: every transfer has a deadline of a few seconds.
    for (int i = 0; i < 1000 && !result; ++i)
        QTest::qWait(10);
    return result.value_or(UpdateChecker::CheckResult{false, "no answer", {}, {}});
}

std::optional<bool> UpdateCheckerTest::download(UpdateChecker& checker) {
    std::optional<bool> done;
    checker.downloadAndOpenUpdate([&](bool ok) { done = ok; });
    for (int i = 0; i < 1000 && !done; ++i)
        QTest::qWait(10);
    return done;
}

QStringList UpdateCheckerTest::leftovers() const {
    QStringList files;
    for (const QString& folder : {QStringLiteral("Downloads"), QStringLiteral("staging")})
        for (const QString& f :
             QDir(m_dir->filePath(folder)).entryList(QDir::Files | QDir::Hidden | QDir::System))
            files << folder + u'/' + f;
    return files;
}

void UpdateCheckerTest::isNewer_data() {
    // Each row compares the two versions its tag names, "a|b".
    QTest::addColumn<bool>("newer");
    for (const char* tag : {"1.10|1.9", "2|1.9.9", "1.2.1|1.2", "1..4|1.3", "+2|1"})
        QTest::newRow(tag) << true;
    for (const char* tag : {"1.2|1.2.0", "1.2.0|1.2", "v2.0|1.0", "1.2.beta|1.2", "1.4.5|1.4.5",
                            "1.4.4|1.4.5", "|0", "1.99999999999999999999|1.0", "1. 5|1.4"})
        QTest::newRow(tag) << false;
}

void UpdateCheckerTest::isNewer() {
    QFETCH(bool, newer);
    const QStringList versions = QString::fromUtf8(QTest::currentDataTag()).split(u'|');
    QCOMPARE(UpdateChecker::isNewer(versions[0], versions[1]), newer);
}

void UpdateCheckerTest::vendorUrls_data() {
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("https") << "https://updates.example.org" << true;
    QTest::newRow("https with a path") << "https://example.org/mindmeter/" << true;
    QTest::newRow("http to 127.0.0.1") << "http://127.0.0.1:8080" << true;
    QTest::newRow("http to 127.1.2.3") << "http://127.1.2.3" << true;
    QTest::newRow("http to ::1") << "http://[::1]:8080" << true;
    QTest::newRow("http to localhost") << "http://localhost:8080" << true;
    QTest::newRow("http elsewhere") << "http://example.org" << false;
    QTest::newRow("http to a private address") << "http://192.168.1.2" << false;
    QTest::newRow("ftp") << "ftp://127.0.0.1" << false;
    QTest::newRow("file") << "file:///tmp" << false;
    QTest::newRow("no host") << "https:///version.json" << false;
    QTest::newRow("not a URL") << "not a url" << false;
}

void UpdateCheckerTest::vendorUrls() {
    QFETCH(QString, url);
    QFETCH(bool, accepted);
    QCOMPARE(UpdateChecker::isAcceptableUrl(QUrl(url, QUrl::StrictMode)), accepted);
}

void UpdateCheckerTest::manifestVersions_data() {
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("version");
    QTest::addColumn<bool>("available");
    // (A newer and an equal version with a digest: the command line's update test.)
    QTest::newRow("older") << QByteArray(R"({"version":"1.4.4","notes":[1,2]})") << 200 << "1.4.4"
                           << false;
    QTest::newRow("patch of the running one")
        << QByteArray(R"({"version":"1.4.5.1"})") << 200 << "1.4.5.1" << true;
    QTest::newRow("digest that is not text counts as none")
        << QByteArray(R"({"version":"2.0","sha256":12})") << 200 << "2.0" << true;
    QTest::newRow("status is not looked at")
        << QByteArray(R"({"version":"3.0"})") << 500 << "3.0" << true;
}

void UpdateCheckerTest::manifestVersions() {
    QFETCH(QByteArray, json);
    QFETCH(int, status);
    QFETCH(QString, version);
    QFETCH(bool, available);
    // Served from a moved place: a relative redirect on the same loopback site is followed.
    m_server->answer("/old/version.json",
                     HttpAnswer::make(301, {}, {{"Location", "/new/version.json"}}));
    m_server->answer("/new/version.json", manifest(json, status));
    std::unique_ptr<UpdateChecker> checker = makeChecker(m_server->baseUrl() + "/old/");
    const UpdateChecker::CheckResult r = check(*checker);
    QVERIFY2(r.ok, qPrintable(r.error));
    QCOMPARE(checker->latestVersion(), std::optional<QString>(version));
    QCOMPARE(checker->updateAvailable(), available);
    QCOMPARE(r.sha256, std::nullopt);
    const QByteArray head = m_server->lastHead("/old/version.json");
    QVERIFY(head.contains("accept: application/json"));
    QVERIFY(head.contains("cache-control: no-cache"));

    // The same answer through the program's own `update --check`, as the tray app asks it.
    UpdateChecker::Options viaChild;
    viaChild.checkProgram = QStringLiteral(MINDMETER_EXECUTABLE);
    viaChild.checkArguments = {"update", "--check", "--json"};
    qputenv("MINDMETER_VENDOR_URL", (m_server->baseUrl() + "/old/").toUtf8());
    UpdateChecker child(m_opener, viaChild);
    const UpdateChecker::CheckResult c = check(child);
    qunsetenv("MINDMETER_VENDOR_URL");
    QVERIFY2(c.ok, qPrintable(c.error));
    QCOMPARE(child.latestVersion(), std::optional<QString>(version));
    QCOMPARE(child.updateAvailable(), available);
}

void UpdateCheckerTest::hostileManifestsChangeNothing_data() {
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<QString>("reason");
    const QByteArray big = R"({"version":"9.0","pad":")" + QByteArray(70000, 'x') + R"("})";
    HttpAnswer unannounced = manifest(big);
    unannounced.contentLength = false;
    HttpAnswer silent;
    silent.silent = true;
    HttpAnswer drip = manifest(R"({"version":"9.0"})" + QByteArray(200, ' '));
    drip.dripMs = 20;

    QTest::newRow("over 64 KiB, announced") << manifest(big) << "larger than 65536";
    QTest::newRow("over 64 KiB, unannounced") << unannounced << "larger than 65536";
    // (What parses as a manifest at all is the manifest fuzz target's part.)
    QTest::newRow("top level is an array")
        << manifest(R"([{"version":"9.0"}])") << "not a manifest";
    QTest::newRow("version is a number") << manifest(R"({"version":9})") << "not a manifest";
    QTest::newRow("not JSON") << manifest("<html>oops</html>", 404) << "not a manifest";
    QTest::newRow("redirect to https")
        << HttpAnswer::make(302, {}, {{"Location", "https://127.0.0.1:PORT/version.json"}})
        << "another scheme";
    QTest::newRow("redirect to ftp")
        << HttpAnswer::make(302, {}, {{"Location", "ftp://127.0.0.1/version.json"}})
        << ""; // Qt refuses a scheme it has no handler for before asking
    QTest::newRow("redirect to a remote http host")
        << HttpAnswer::make(302, {}, {{"Location", "http://updates.example.org/version.json"}})
        << "loopback";
    QTest::newRow("silent server") << silent << "timed out";
    QTest::newRow("slow drip") << drip << "timed out";
    QTest::newRow("redirect loop")
        << HttpAnswer::make(302, {}, {{"Location", "/moved/../version.json"}}) << "redirect loop";
}

void UpdateCheckerTest::hostileManifestsChangeNothing() {
    QFETCH(HttpAnswer, answer);
    QFETCH(QString, reason);
    std::unique_ptr<UpdateChecker> checker = makeChecker();
    m_server->answer("/version.json", manifest(R"({"version":"1.5.0","sha256":"ab"})"));
    QVERIFY(check(*checker).ok);

    for (auto& [name, value] : answer.headers) // the server's port is known only now
        value.replace("PORT", m_server->baseUrl().section(u':', -1).toUtf8());
    m_server->answer("/version.json", answer);
    const UpdateChecker::CheckResult r = check(*checker);
    QVERIFY(!r.ok);
    QVERIFY2(r.error.contains(reason), qPrintable(r.error));
    QCOMPARE(checker->latestVersion(), std::optional<QString>("1.5.0"));
    QVERIFY(checker->updateAvailable());
}

void UpdateCheckerTest::verifiedDownloadIsOpenedThenQuits_data() {
    QTest::addColumn<bool>("otherFileSystem");
    QTest::newRow("Downloads beside the cache") << false;
    QTest::newRow("Downloads on another file system") << true;
}

void UpdateCheckerTest::verifiedDownloadIsOpenedThenQuits() {
    QFETCH(bool, otherFileSystem);
    const QByteArray package = packageBytes();
    const QString name = UpdateChecker::packageFileName("1.5.0");
#if defined(__x86_64__)
    QCOMPARE(name, QStringLiteral("mindmeter_1.5.0_amd64.deb"));
#endif
    m_server->answer("/version.json",
                     manifest(R"({"version":"1.5.0","sha256":")" + sha256Hex(package) + R"("})"));
    m_server->answer("/" + name.toUtf8(), HttpAnswer::make(200, package));
    std::unique_ptr<UpdateChecker> checker = makeChecker();

    QCOMPARE(download(*checker), std::optional<bool>(false)); // nothing announced yet
    QVERIFY(check(*checker).ok);

    const QString downloads = m_dir->filePath("Downloads");
    QDir().mkpath(downloads);
    if (otherFileSystem) {
        // A small tmpfs mounted as Downloads; without the right to mount, Downloads is a link
        // to a folder in /dev/shm, the tmpfs every Linux system has.
        m_mounted =
            ::mount("tmpfs", QFile::encodeName(downloads).constData(), "tmpfs", 0, "size=8m") == 0;
        if (!m_mounted) {
            m_shm = std::make_unique<QTemporaryDir>(QStringLiteral("/dev/shm/mindmeter-XXXXXX"));
            QVERIFY(m_shm->isValid());
            QVERIFY(QDir().rmdir(downloads) && QFile::link(m_shm->path(), downloads));
        }
        struct stat a = {}, b = {};
        QVERIFY(::stat(QFile::encodeName(downloads).constData(), &a) == 0 &&
                ::stat(QFile::encodeName(m_dir->path()).constData(), &b) == 0);
        QVERIFY(a.st_dev != b.st_dev);
    }
    // A link standing under the package's name is replaced, never written through, and an
    // earlier file of the same name would be replaced whole the same way.
    QFile outside(m_dir->filePath("outside.deb"));
    QVERIFY(outside.open(QIODevice::WriteOnly) && outside.write("the user's own file") > 0);
    outside.close();
    QVERIFY(QFile::link(outside.fileName(), downloads + u'/' + name));

    QCOMPARE(download(*checker), std::optional<bool>(true));
    QFile saved(m_dir->filePath("Downloads/" + name));
    QVERIFY(saved.open(QIODevice::ReadOnly));
    QCOMPARE(saved.readAll(), package);
    QCOMPARE(m_opener.opened, QList<QUrl>{QUrl::fromLocalFile(saved.fileName())});
    QTRY_COMPARE(m_quits, 1);
    QCOMPARE(leftovers(), QStringList{"Downloads/" + name});
    QVERIFY(!QFileInfo(saved.fileName()).isSymLink());
    QVERIFY(outside.open(QIODevice::ReadOnly));
    QCOMPARE(outside.readAll(), QByteArray("the user's own file"));

    // Without a digest in the manifest the package is opened unverified.
    m_server->answer("/version.json", manifest(R"({"version":"1.6"})"));
    m_server->answer("/" + UpdateChecker::packageFileName("1.6").toUtf8(),
                     HttpAnswer::make(200, "unverified"));
    QVERIFY(check(*checker).ok);
    QCOMPARE(download(*checker), std::optional<bool>(true));
    QCOMPARE(m_opener.opened.size(), 2);
    QTRY_COMPARE(m_quits, 2);
}

void UpdateCheckerTest::digestMismatchIsLoggedAndNothingIsKept_data() {
    QTest::addColumn<QByteArray>("expected");
    const QByteArray package = packageBytes();
    QTest::newRow("another file's digest") << sha256Hex("something else");
    QTest::newRow("upper-case digest") << sha256Hex(package).toUpper();
    QTest::newRow("not a digest") << QByteArray("ab");
}

void UpdateCheckerTest::digestMismatchIsLoggedAndNothingIsKept() {
    QFETCH(QByteArray, expected);
    const QByteArray package = packageBytes();
    m_server->answer("/version.json",
                     manifest(R"({"version":"1.5.0","sha256":")" + expected + R"("})"));
    m_server->answer("/" + UpdateChecker::packageFileName("1.5.0").toUtf8(),
                     HttpAnswer::make(200, package));
    std::unique_ptr<UpdateChecker> checker = makeChecker();
    QVERIFY(check(*checker).ok);
    QTest::ignoreMessage(QtWarningMsg, "UpdateChecker: SHA-256 mismatch \u2014 expected " +
                                           expected + " got " + sha256Hex(package));
    QCOMPARE(download(*checker), std::optional<bool>(false));
    QVERIFY(m_opener.opened.isEmpty());
    QCOMPARE(leftovers(), QStringList());
    QTest::qWait(20);
    QCOMPARE(m_quits, 0);
}

void UpdateCheckerTest::hostileDownloadsLeaveNothing_data() {
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<QByteArray>("version");
    const QByteArray big(300 * 1024, 'p'); // the test's cap is 256 KiB
    HttpAnswer unannounced = HttpAnswer::make(200, big);
    unannounced.contentLength = false;
    HttpAnswer lying = HttpAnswer::make(200, "short");
    lying.announcedLength = qint64(1) << 40;
    HttpAnswer silent;
    silent.silent = true;
    HttpAnswer drip = HttpAnswer::make(200, QByteArray(1000, 'd'));
    drip.dripMs = 20;
    QTest::newRow("announced over the cap") << HttpAnswer::make(200, big) << QByteArray("1.5.0");
    QTest::newRow("over the cap, unannounced") << unannounced << QByteArray("1.5.0");
    QTest::newRow("announces a terabyte") << lying << QByteArray("1.5.0");
    QTest::newRow("silent server") << silent << QByteArray("1.5.0");
    QTest::newRow("slow drip") << drip << QByteArray("1.5.0");
    QTest::newRow("not found") << HttpAnswer::make(404, "no such package") << QByteArray("1.5.0");
    QTest::newRow("redirect to ftp")
        << HttpAnswer::make(302, {}, {{"Location", "ftp://127.0.0.1/p.deb"}})
        << QByteArray("1.5.0");
    QTest::newRow("version that names a path")
        << HttpAnswer::make(200, "x") << QByteArray("../../x");
}

void UpdateCheckerTest::hostileDownloadsLeaveNothing() {
    QFETCH(HttpAnswer, answer);
    QFETCH(QByteArray, version);
    // No digest: only the transfer itself can refuse.
    m_server->answer("/version.json", manifest(R"({"version":")" + version + R"("})"));
    const QString name = UpdateChecker::packageFileName(QString::fromUtf8(version));
    m_server->answer("/" + name.toUtf8(), answer);
    std::unique_ptr<UpdateChecker> checker = makeChecker();
    QVERIFY(check(*checker).ok);
    QCOMPARE(download(*checker), std::optional<bool>(false));
    QVERIFY(m_opener.opened.isEmpty());
    QCOMPARE(leftovers(), QStringList());
    if (name.isEmpty())
        QCOMPARE(m_server->hits("/../../x"), 0);
}

QTEST_GUILESS_MAIN(UpdateCheckerTest)
#include "tst_updatechecker.moc"
