#include "LocalHttpServer.h"

#include "platform/network/QtHttpFetcher.h"
#include "services/UpdateChecker.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

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

HttpAnswer manifest(const QByteArray& json, int status = 200) {
    return HttpAnswer::make(status, json, {{"Content-Type", "application/json"}});
}

HttpAnswer redirect(const QByteArray& location) {
    return HttpAnswer::make(302, {}, {{"Location", location}});
}

} // namespace

// The update check and download against a local HTTP server on 127.0.0.1.
class UpdateCheckerTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void isNewer_data();
    void isNewer();
    void manifestAnswers_data();
    void manifestAnswers();
    void downloads_data();
    void downloads();

private:
    std::unique_ptr<UpdateChecker> makeChecker(const QString& vendor = {});
    UpdateChecker::CheckResult check(UpdateChecker& checker);
    std::optional<bool> download(UpdateChecker& checker);
    QStringList leftovers() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<LocalHttpServer> m_server;
    RecordingOpener m_opener;
    int m_quits = 0;
};

void UpdateCheckerTest::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_server = std::make_unique<LocalHttpServer>();
    QVERIFY(m_server->listen());
    m_opener = RecordingOpener();
    m_quits = 0;
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
    options.makeFetcher = [](QString*) { return std::make_unique<QtHttpFetcher>(); };
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

void UpdateCheckerTest::manifestAnswers_data() {
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<QString>("refusal"); // empty: taken
    QTest::addColumn<QString>("version"); // what is known after the answer
    QTest::addColumn<bool>("available");
    // (A newer and an equal version with a digest: the command line's update test.)
    QTest::newRow("older") << manifest(R"({"version":"1.4.4","notes":[1,2]})") << ""
                           << "1.4.4" << false;
    QTest::newRow("patch of the running one") << manifest(R"({"version":"1.4.5.1"})") << ""
                                              << "1.4.5.1" << true;
    QTest::newRow("digest that is not text counts as none")
        << manifest(R"({"version":"2.0","sha256":12})") << ""
        << "2.0" << true;

    // Hostile answers change nothing: what the last good one said stands.
    const QByteArray big = R"({"version":"9.0","pad":")" + QByteArray(70000, 'x') + R"("})";
    HttpAnswer unannounced = manifest(big);
    unannounced.contentLength = false;
    HttpAnswer silent;
    silent.silent = true;
    HttpAnswer drip = manifest(R"({"version":"9.0"})" + QByteArray(200, ' '));
    drip.dripMs = 20;
    const auto hostile = [](const char* name, const HttpAnswer& answer, const QString& refusal) {
        QTest::newRow(name) << answer << refusal << "1.5.0" << true;
    };
    hostile("over 64 KiB, announced", manifest(big), "larger than 65536");
    hostile("over 64 KiB, unannounced", unannounced, "larger than 65536");
    // (What parses as a manifest at all is the manifest fuzz target's part.)
    hostile("top level is an array", manifest(R"([{"version":"9.0"}])"), "not a manifest");
    hostile("not JSON", manifest("<html>oops</html>", 404), "not a manifest");
    hostile("redirect to https", redirect("https://127.0.0.1:PORT/version.json"), "another scheme");
    // Qt refuses a scheme it has no handler for before asking: any reason.
    hostile("redirect to ftp", redirect("ftp://127.0.0.1/version.json"), " ");
    hostile("redirect to a remote http host", redirect("http://updates.example.org/version.json"),
            "loopback");
    hostile("redirect to a private address", redirect("http://192.168.1.2/version.json"),
            "loopback");
    hostile("silent server", silent, "timed out");
    hostile("slow drip", drip, "timed out");
    hostile("redirect loop", redirect("/moved/../new/version.json"), "redirect loop");
}

void UpdateCheckerTest::manifestAnswers() {
    QFETCH(HttpAnswer, answer);
    QFETCH(QString, refusal);
    QFETCH(QString, version);
    QFETCH(bool, available);
    // Served from a moved place: a relative redirect on the same loopback site is followed.
    m_server->answer("/old/version.json",
                     HttpAnswer::make(301, {}, {{"Location", "/new/version.json"}}));
    m_server->answer("/new/version.json", manifest(R"({"version":"1.5.0","sha256":"ab"})"));
    std::unique_ptr<UpdateChecker> checker = makeChecker(m_server->baseUrl() + "/old/");
    QVERIFY(check(*checker).ok);
    QVERIFY(m_server->lastHead("/old/version.json").contains("cache-control: no-cache"));

    for (auto& [name, value] : answer.headers) // the server's port is known only now
        value.replace("PORT", m_server->baseUrl().section(u':', -1).toUtf8());
    m_server->answer("/new/version.json", answer);
    const UpdateChecker::CheckResult r = check(*checker);
    QCOMPARE(r.ok, refusal.isEmpty());
    QVERIFY2(refusal.isEmpty() ? !r.sha256 : r.error.contains(refusal.trimmed()),
             qPrintable(r.error));
    QCOMPARE(checker->latestVersion(), std::optional<QString>(version));
    QCOMPARE(checker->updateAvailable(), available);
    if (!refusal.isEmpty())
        return;

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

void UpdateCheckerTest::downloads_data() {
    QTest::addColumn<HttpAnswer>("answer"); // for the package
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<QByteArray>("digest"); // in the manifest; empty: none
    QTest::addColumn<bool>("opened");
    const QByteArray package = QByteArray("a package of 200 KB ").repeated(10000);
    const HttpAnswer good = HttpAnswer::make(200, package);
    const QByteArray v = "1.5.0";
    QTest::newRow("verified") << good << v << sha256Hex(package) << true;
    QTest::newRow("without a digest: unverified") << good << v << QByteArray() << true;
    QTest::newRow("another file's digest") << good << v << sha256Hex("else") << false;
    QTest::newRow("upper-case digest") << good << v << sha256Hex(package).toUpper() << false;
    QTest::newRow("not a digest") << good << v << QByteArray("ab") << false;

    // Hostile transfers, without a digest: only the transfer itself can refuse.
    const QByteArray big(300 * 1024, 'p'); // the test's cap is 256 KiB
    HttpAnswer unannounced = HttpAnswer::make(200, big);
    unannounced.contentLength = false;
    HttpAnswer lying = HttpAnswer::make(200, "short");
    lying.announcedLength = qint64(1) << 40;
    HttpAnswer silent;
    silent.silent = true;
    HttpAnswer drip = HttpAnswer::make(200, QByteArray(1000, 'd'));
    drip.dripMs = 20;
    const auto hostile = [&](const char* name, const HttpAnswer& answer,
                             const QByteArray& version = "1.5.0") {
        QTest::newRow(name) << answer << version << QByteArray() << false;
    };
    hostile("over the cap, unannounced", unannounced);
    hostile("announces a terabyte", lying);
    hostile("silent server", silent);
    hostile("slow drip", drip);
    hostile("not found", HttpAnswer::make(404, "no such package"));
    hostile("redirect to ftp", redirect("ftp://127.0.0.1/p.deb"));
    hostile("version that names a path", HttpAnswer::make(200, "x"), "../../x");
}

void UpdateCheckerTest::downloads() {
    QFETCH(HttpAnswer, answer);
    QFETCH(QByteArray, version);
    QFETCH(QByteArray, digest);
    QFETCH(bool, opened);
    const QString name = UpdateChecker::packageFileName(QString::fromUtf8(version));
    m_server->answer("/version.json",
                     manifest(R"({"version":")" + version +
                              (digest.isEmpty() ? "" : R"(","sha256":")" + digest) + R"("})"));
    m_server->answer("/" + name.toUtf8(), answer);
    std::unique_ptr<UpdateChecker> checker = makeChecker();
    QCOMPARE(download(*checker), std::optional<bool>(false)); // nothing announced yet
    QVERIFY(check(*checker).ok);

    // A link standing under the package's name is replaced, never written through.
    const QString downloads = m_dir->filePath("Downloads");
    QFile outside(m_dir->filePath("outside.deb"));
    QVERIFY(outside.open(QIODevice::WriteOnly) && outside.write("the user's own file") > 0);
    outside.close();
    if (opened)
        QVERIFY(QDir().mkpath(downloads) &&
                QFile::link(outside.fileName(), downloads + '/' + name));
    if (!digest.isEmpty() && !opened)
        QTest::ignoreMessage(QtWarningMsg, "UpdateChecker: SHA-256 mismatch \u2014 expected " +
                                               digest + " got " + sha256Hex(answer.body));

    QCOMPARE(download(*checker), std::optional<bool>(opened));
    QVERIFY(outside.open(QIODevice::ReadOnly));
    QCOMPARE(outside.readAll(), QByteArray("the user's own file"));
    QCOMPARE(m_server->hits("/../../x"), 0);
    if (!opened) {
        QVERIFY(m_opener.opened.isEmpty());
        QCOMPARE(leftovers(), QStringList());
        QTest::qWait(20);
        QCOMPARE(m_quits, 0);
        return;
    }
    QFile saved(downloads + u'/' + name);
    QVERIFY(!QFileInfo(saved.fileName()).isSymLink() && saved.open(QIODevice::ReadOnly));
    QCOMPARE(saved.readAll(), answer.body);
    QCOMPARE(m_opener.opened, QList<QUrl>{QUrl::fromLocalFile(saved.fileName())});
    QTRY_COMPARE(m_quits, 1);
    QCOMPARE(leftovers(), QStringList{"Downloads/" + name});
}

QTEST_GUILESS_MAIN(UpdateCheckerTest)
#include "tst_updatechecker.moc"
