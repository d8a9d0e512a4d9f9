#include "LocalHttpServer.h"
#include "RunProcess.h"

#include "model/SessionCodec.h"
#include "store/SqliteDefaults.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <signal.h>
#include <sys/resource.h>

namespace {

using Result = ProcessResult;

const QByteArray header = "Date,Weighted Total,AI Collab,Reasoning,Output,Input,Raw Total,"
                          "Sessions,Peak Hour,Top App,Saturation %";

} // namespace

// export, summary and update through the real executable, against a throw-away data folder
// and, for update, a local HTTP server.
class ServiceCommandsTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void exportAndSummaryOfWrittenDays();
    void exportReplacesFilesWhole();
    void updateCheck();
    void updateCheckFailure();

private:
    Result run(const QStringList& args, const QByteArray& input = {}, const QByteArray& vendor = {},
               qint64 fileSizeLimit = 0);
    QDate localDay(int daysBack) const { return m_today.addDays(-daysBack); }
    QDateTime localTime(int daysBack, int hour, int minute = 0) const;
    QByteArray day(const QList<std::tuple<QString, qint64, QDateTime, QString>>& sessions) const;
    QString dbPath() const { return m_dir->filePath("mindmeter/mindmeter.sqlite3"); }

    std::unique_ptr<QTemporaryDir> m_dir;
    LocalHttpServer m_server;
    // A zone in which it is now about noon, so today's early sessions are hours old and the
    // day is far from its ends whenever the test runs.
    QByteArray m_zone;
    int m_offsetHours = 0;
    QDate m_today;
};

void ServiceCommandsTest::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    QVERIFY(m_server.isListening() || m_server.listen());
    const QDateTime utc = QDateTime::currentDateTimeUtc();
    m_offsetHours = 12 - utc.time().hour();              // -11 ... +12
    m_zone = "MMT" + QByteArray::number(-m_offsetHours); // POSIX: the sign is inverted
    m_today = utc.addSecs(m_offsetHours * 3600).date();
}

QDateTime ServiceCommandsTest::localTime(int daysBack, int hour, int minute) const {
    return QDateTime(localDay(daysBack), QTime(hour, minute), Qt::UTC)
        .addSecs(-m_offsetHours * 3600);
}

QByteArray ServiceCommandsTest::day(
    const QList<std::tuple<QString, qint64, QDateTime, QString>>& sessions) const {
    QList<ActivitySession> list;
    for (const auto& [type, raw, start, app] : sessions) {
        const Timestamp t = Timestamp::fromDateTime(start);
        list.append({QUuid::createUuid(), "com.example.app", app, *TokenTypes::fromRawValue(type),
                     t, t.addSeconds(60), raw});
    }
    return SessionCodec::encodeDay(list);
}

Result ServiceCommandsTest::run(const QStringList& args, const QByteArray& input,
                                const QByteArray& vendor, qint64 fileSizeLimit) {
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_DATA_HOME", m_dir->path());
    env.insert("TZ", QString::fromLatin1(m_zone));
    env.insert("LC_ALL", "en_US.UTF-8");
    env.insert("MINDMETER_VENDOR_URL", vendor.isEmpty() ? m_server.baseUrl() : vendor);
    p.setProcessEnvironment(env);
    if (fileSizeLimit > 0)
        p.setChildProcessModifier([fileSizeLimit] {
            const rlimit limit{rlim_t(fileSizeLimit), rlim_t(fileSizeLimit)};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            ::signal(SIGXFSZ, SIG_IGN); // a write past the limit fails instead of killing
        });
    p.start(MINDMETER_EXECUTABLE, args);
    if (!p.waitForStarted())
        return {};
    p.write(input);
    p.closeWriteChannel();
    // The event loop keeps running meanwhile: the HTTP server lives in this process.
    for (int i = 0; i < 3000 && p.state() != QProcess::NotRunning; ++i)
        QTest::qWait(10);
    if (p.state() != QProcess::NotRunning) {
        p.kill();
        p.waitForFinished();
        return {};
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
            p.readAllStandardError()};
}

void ServiceCommandsTest::exportAndSummaryOfWrittenDays() {
    auto write = [this](int daysBack, const QByteArray& json) {
        return run({"defaults", "write",
                    "mindmeter.sessions." + localDay(daysBack).toString(Qt::ISODate), "-data-file",
                    "-"},
                   json)
            .exitCode;
    };
    QCOMPARE(run({"defaults", "write", "mindmeter.dailyTokenBaseline", "-int", "10000"}).exitCode,
             0);
    QCOMPARE(write(0, day({{"ai", 400, localTime(0, 1), "ChatGPT"},
                           {"reasoning", 500, localTime(0, 2, 10), "Term, \"x\""},
                           {"input", 7, localTime(0, 2, 30), "Mail"}})),
             0);
    QCOMPARE(write(1, day({{"output", 1000, localTime(1, 10), "Writer"}})), 0);
    QCOMPARE(write(3, day({{"input", 12000, localTime(3, 23), "Mail"}})), 0);

    Result r = run({"export", "--csv", "-"});
    QCOMPARE(r.exitCode, 0);
    QVERIFY(r.err.isEmpty());
    const auto date = [this](int back) { return localDay(back).toString(Qt::ISODate).toUtf8(); };
    QCOMPARE(r.out, header + "\n" + date(0) +
                        ",2507,1000,1500,0,7,907,3,2 AM,\"Term, \"\"x\"\"\",25.1\n" + date(1) +
                        ",2000,0,0,2000,0,1000,1,10 AM,Writer,20.0\n" + date(3) +
                        ",12000,0,0,0,12000,12000,1,11 PM,Mail,100.0");

    r = run({"summary"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(QString::fromUtf8(r.out),
             "## Mindmeter \u2014 " + QLocale("en_US").toString(m_today, "MMM d, yyyy") +
                 "\n"
                 "\n"
                 "**Total:** 2.5k  \u00b7  **Saturation:** 25%  \u00b7  **Temperature:** 50%  "
                 "\u00b7  **Sessions:** 3\n"
                 "\n"
                 "| Type | Tokens | Share |\n"
                 "|------|--------|-------|\n"
                 "| AI Collab | 1.0k | 39% |\n"
                 "| Reasoning | 1.5k | 59% |\n"
                 "| Input | 7 | 0% |\n"
                 "\n"
                 "**Peak hour:** 2 AM  \u00b7  **Top app:** Term, \"x\"");
}

void ServiceCommandsTest::exportReplacesFilesWhole() {
    // Sixty days with long application names make a CSV of about 150 KB.
    {
        std::unique_ptr<SqliteDefaults> db = SqliteDefaults::open(dbPath());
        QVERIFY(db);
        for (int back = 0; back < 60; ++back)
            QVERIFY(db->setData(
                "mindmeter.sessions." + localDay(back).toString(Qt::ISODate),
                day({{"input", 5, localTime(back, 3), QString(2500, QChar(u'a' + back % 26))}})));
    }
    const QString path = m_dir->filePath("out/history.csv");
    QDir().mkpath(m_dir->filePath("out"));
    QFile old(path);
    QVERIFY(old.open(QIODevice::WriteOnly));
    old.write("old export\n");
    old.close();

    Result r = run({"export", "--csv", path});
    QCOMPARE(r.exitCode, 0);
    QVERIFY(r.out.isEmpty());
    QFile written(path);
    QVERIFY(written.open(QIODevice::ReadOnly));
    const QByteArray csv = written.readAll();
    written.close();
    QVERIFY(csv.startsWith(header + "\n" + localDay(0).toString(Qt::ISODate).toUtf8()));
    QCOMPARE(csv.count('\n'), 60);
    QCOMPARE(csv, run({"export", "--csv", "-"}).out);

    // The file system refuses the write half way (a 100 KB file-size limit): the old file
    // stays whole and no partial file is left beside it.
    QVERIFY(old.open(QIODevice::WriteOnly));
    old.write("old export\n");
    old.close();
    r = run({"export", "--csv", path}, {}, {}, 100 * 1024);
    QCOMPARE(r.exitCode, 1);
    QVERIFY2(r.err.startsWith("mindmeter: cannot write " + path.toUtf8() + ": "),
             r.err.constData());
    QCOMPARE(r.err.count('\n'), 1);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), QByteArray("old export\n"));
    QCOMPARE(QDir(m_dir->filePath("out")).entryList(QDir::Files | QDir::Hidden),
             QStringList{"history.csv"});

    r = run({"export", "--csv", m_dir->filePath("missing/history.csv")});
    QCOMPARE(r.exitCode, 1);
    QVERIFY(r.err.contains("No such file or directory"));
}

void ServiceCommandsTest::updateCheck() {
    const QByteArray digest = QCryptographicHash::hash("pkg", QCryptographicHash::Sha256).toHex();
    m_server.answer("/version.json",
                    HttpAnswer::make(200, R"({"version":"9.1.0","sha256":")" + digest + R"("})"));
    Result r = run({"update", "--check", "--json"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(QJsonDocument::fromJson(r.out).object(),
             QJsonObject({{"latestVersion", "9.1.0"},
                          {"updateAvailable", true},
                          {"sha256", QString::fromLatin1(digest)}}));

    m_server.answer("/version.json", HttpAnswer::make(200, R"({"version":"1.4.5"})"));
    r = run({"update", "--check"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QByteArray("Latest version: 1.4.5\nRunning version: 1.4.5\n"
                               "Update available: no\n"));
    QVERIFY(r.err.isEmpty());
    QVERIFY(!QFile::exists(dbPath())); // a check needs no settings
}

void ServiceCommandsTest::updateCheckFailure() {
    // Which answers are refused is the update checker's own test; here, how the command says so.
    const Result r = run({"update", "--check", "--json"}, {}, "http://127.0.0.1:9");
    QCOMPARE(r.exitCode, 1);
    QVERIFY(r.out.isEmpty());
    QVERIFY2(r.err.endsWith("mindmeter: update check failed: Connection refused\n"),
             r.err.constData());
}

QTEST_GUILESS_MAIN(ServiceCommandsTest)
#include "tst_servicecommands.moc"
