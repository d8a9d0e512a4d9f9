#include "RunProcess.h"

#include "model/SessionCodec.h"
#include "store/SqliteDefaults.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <sys/stat.h>
#include <unistd.h>

using Result = ProcessResult;

// Runs the real executable against a throw-away data folder.
class CommandLineTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void writeReadDelete();
    void usageErrorsWriteNothing_data();
    void usageErrorsWriteNothing();
    void dayFromStandardInputShowsInStatus();
    void historyOverWrittenDays();
    void damagedStoreReadsAsDamaged_data();
    void damagedStoreReadsAsDamaged();
    void trayWithoutADisplay();

private:
    Result run(const QStringList& args, const QByteArray& input = {});
    QString dbPath() const { return m_dir->filePath("mindmeter/mindmeter.sqlite3"); }
    static QByteArray day(const QDate& date, const QList<QPair<QString, qint64>>& sessions);

    std::unique_ptr<QTemporaryDir> m_dir;
};

void CommandLineTest::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

Result CommandLineTest::run(const QStringList& args, const QByteArray& input) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_DATA_HOME", m_dir->path());
    env.insert("TZ", "UTC");
    env.insert("LC_ALL", "C.UTF-8");
    return runProcess(MINDMETER_EXECUTABLE, args, env, input);
}

QByteArray CommandLineTest::day(const QDate& date, const QList<QPair<QString, qint64>>& sessions) {
    QList<ActivitySession> list;
    QDateTime t(date, QTime(9, 0), Qt::UTC);
    for (const auto& [type, raw] : sessions) {
        const Timestamp start = Timestamp::fromDateTime(t);
        list.append({QUuid::createUuid(), "com.apple.Terminal", "Terminal",
                     *TokenTypes::fromRawValue(type), start, start.addSeconds(60), raw});
        t = t.addSecs(600);
    }
    return SessionCodec::encodeDay(list);
}

void CommandLineTest::writeReadDelete() {
    QCOMPARE(run({"defaults", "write", "mindmeter.dailyTokenBaseline", "-int", "30000"}).exitCode,
             0);
    QCOMPARE(run({"defaults", "write", "mindmeter.pro.endOfDayTime", "-float", "64800.5"}).exitCode,
             0);
    QCOMPARE(run({"defaults", "write", "mindmeter.pro.alertEnabled", "-bool", "YES"}).exitCode, 0);
    QCOMPARE(run({"defaults", "write", "mindmeter.menuBarStyle", "-string", "countOnly"}).exitCode,
             0);

    Result r = run({"defaults", "read", "mindmeter.dailyTokenBaseline"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QByteArray("30000\n"));
    QCOMPARE(run({"defaults", "read", "mindmeter.pro.endOfDayTime"}).out, QByteArray("64800.5\n"));
    QCOMPARE(run({"defaults", "read", "mindmeter.pro.alertEnabled"}).out, QByteArray("1\n"));

    r = run({"defaults", "read"});
    QCOMPARE(r.exitCode, 0);
    QVERIFY(r.out.contains("\"mindmeter.menuBarStyle\" = \"countOnly\";"));
    QVERIFY(r.out.contains("\"mindmeter.dailyTokenBaseline\" = 30000;"));

    QCOMPARE(run({"defaults", "delete", "mindmeter.dailyTokenBaseline"}).exitCode, 0);
    r = run({"defaults", "read", "mindmeter.dailyTokenBaseline"});
    QCOMPARE(r.exitCode, 1);
    QVERIFY(r.err.contains("no value for mindmeter.dailyTokenBaseline"));
    QCOMPARE(run({"defaults", "delete", "mindmeter.dailyTokenBaseline"}).exitCode, 1);

    struct stat st {};
    QCOMPARE(::stat(QFile::encodeName(dbPath()).constData(), &st), 0);
    QCOMPARE(st.st_mode & 0777, mode_t(0600));
}

void CommandLineTest::usageErrorsWriteNothing_data() {
    QTest::addColumn<QStringList>("args");
    QTest::newRow("unknown verb") << QStringList{"frobnicate"};
    QTest::newRow("unknown action") << QStringList{"defaults", "export"};
    QTest::newRow("write without value") << QStringList{"defaults", "write", "k", "-int"};
    QTest::newRow("not an integer") << QStringList{"defaults", "write", "k", "-int", "12x"};
    QTest::newRow("integer overflow")
        << QStringList{"defaults", "write", "k", "-int", "9223372036854775808"};
    QTest::newRow("not finite") << QStringList{"defaults", "write", "k", "-float", "inf"};
    QTest::newRow("unknown type") << QStringList{"defaults", "write", "k", "-dict", "x"};
    QTest::newRow("empty key") << QStringList{"defaults", "write", "", "-int", "1"};
    QTest::newRow("missing file") << QStringList{"defaults", "write", "k", "-data-file",
                                                 "/nonexistent/day.json"};
    QTest::newRow("day that does not decode")
        << QStringList{"defaults", "write", "mindmeter.sessions.2026-05-30", "-string", "[]"};
    QTest::newRow("idle time-out that overflows") << QStringList{
        "defaults", "write", "mindmeter.idleTimeoutMinutes", "-int", "9223372036854775807"};
    QTest::newRow("status format unknown") << QStringList{"status", "--format", "xml"};
    QTest::newRow("status formats at odds") << QStringList{"status", "--json", "--format", "plain"};
    QTest::newRow("history days range") << QStringList{"history", "--days", "91"};
    QTest::newRow("unknown category") << QStringList{"categories", "set", "org.kde.kate", "Notes"};
    QTest::newRow("rate too high")
        << QStringList{"categories", "set", "--site", "example.com", "input", "1001"};
    QTest::newRow("unknown token type")
        << QStringList{"categories", "set", "org.kde.kate", "thinking", "20"};
    QTest::newRow("categories action") << QStringList{"categories", "list"};
    QTest::newRow("export without path") << QStringList{"export", "--csv"};
    QTest::newRow("export other format") << QStringList{"export", "--tsv", "x"};
    QTest::newRow("summary with an argument") << QStringList{"summary", "--json"};
    QTest::newRow("update alone") << QStringList{"update"};
    QTest::newRow("update unknown option") << QStringList{"update", "--check", "--install"};
    // Settings the notifications could not use are refused before they are stored.
    QTest::newRow("digest time beyond 64 bits")
        << QStringList{"defaults", "write", "mindmeter.pro.endOfDayTime", "-float", "1e300"};
    QTest::newRow("alert minutes that overflow seconds") << QStringList{
        "defaults", "write", "mindmeter.pro.tempAlertMinutes", "-int", "300000000000000000"};
    QTest::newRow("remove without id") << QStringList{"categories", "remove"};
    QTest::newRow("snapshot without folder") << QStringList{"--snapshot"};
    QTest::newRow("snapshot inside a verb") << QStringList{"summary", "--snapshot", "shots"};
}

void CommandLineTest::usageErrorsWriteNothing() {
    QFETCH(QStringList, args);
    const Result r = run(args);
    QCOMPARE(r.exitCode, 2);
    QVERIFY(r.out.isEmpty());
    QVERIFY2(r.err.startsWith("mindmeter: "), r.err.constData());
    QVERIFY(r.err.endsWith("\nTry 'mindmeter help' for usage.\n"));
    QCOMPARE(r.err.count('\n'), 2); // one line of error, one of hint
    // Nothing was written: the store was not even created.
    QVERIFY(!QFile::exists(dbPath()));
}

void CommandLineTest::dayFromStandardInputShowsInStatus() {
    const QDate today = QDateTime::currentDateTimeUtc().date();
    const QString key = "mindmeter.sessions." + today.toString(Qt::ISODate);
    // 10 reasoning (30) + 4 ai (10) + 5 input (5) = 45.
    const QByteArray json = day(today, {{"reasoning", 10}, {"ai", 4}, {"input", 5}});
    Result r = run({"defaults", "write", key, "-data-file", "-"}, json);
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(
        run({"defaults", "write", "mindmeter.recovery." + today.toString(Qt::ISODate), "-int", "5"})
            .exitCode,
        0);
    QCOMPARE(run({"defaults", "read", key}).out, json + "\n");

    r = run({"status", "--json"});
    QCOMPARE(r.exitCode, 0);
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    QCOMPARE(o["day"].toString(), today.toString(Qt::ISODate));
    QCOMPARE(o["totalWeighted"].toInteger(), 40);
    QCOMPARE(o["recoveredTokens"].toInteger(), 5);
    QCOMPARE(o["sessionCount"].toInteger(), 3);
    QCOMPARE(o["tokensByType"].toObject(),
             QJsonObject({{"reasoning", 30}, {"ai", 10}, {"input", 5}}));
    QCOMPARE(o["contextSaturation"].toDouble(), 40.0 / 25000.0);
    QVERIFY(o["temperature"].toDouble() > 0.6 && o["temperature"].toDouble() < 0.7);
    QCOMPARE(o["peakHour"].toObject()["label"].toString(), QString("9 AM")); // 30 at 9:00

    r = run({"status"});
    QCOMPARE(r.exitCode, 0);
    QVERIFY2(r.out.contains("40 of 25.0k tokens (0%)"), r.out.constData());
    QVERIFY(r.out.contains("Reasoning 30"));
}

void CommandLineTest::historyOverWrittenDays() {
    const QDate today = QDateTime::currentDateTimeUtc().date();
    // Nine days of 100 input tokens (today and eight before), days 10 and 11 back empty.
    for (int offset : {0, 1, 2, 3, 4, 5, 6, 7, 8})
        QCOMPARE(run({"defaults", "write",
                      "mindmeter.sessions." + today.addDays(-offset).toString(Qt::ISODate),
                      "-data-file", "-"},
                     day(today.addDays(-offset), {{"input", offset == 8 ? 300 : 100}}))
                     .exitCode,
                 0);
    Result r = run({"history", "--json"});
    QCOMPARE(r.exitCode, 0);
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    const QJsonArray days = o["days"].toArray();
    QCOMPARE(days.size(), 9);
    QCOMPARE(days[0].toObject()["label"].toString(), QString("Today"));
    QCOMPARE(days[0].toObject()["isToday"].toBool(), true);
    QCOMPARE(days[1].toObject()["label"].toString(), QString("Yest."));
    QCOMPARE(days[2].toObject()["label"].toString(),
             QLocale::c().toString(today.addDays(-2), "ddd"));
    QCOMPARE(days[8].toObject()["date"].toString(), today.addDays(-8).toString(Qt::ISODate));
    QCOMPARE(days[8].toObject()["tokens"].toInteger(), 300);
    const QJsonObject w = o["weekOverWeek"].toObject();
    QCOMPARE(w["this"].toInteger(), 700);
    QCOMPARE(w["last"].toInteger(), 400);
    QCOMPARE(w["change"].toDouble(), 0.75);

    r = run({"history", "--days", "3"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out.count('\n'), 3);
    QVERIFY(r.out.startsWith(today.toString(Qt::ISODate).toUtf8() + "  Today "));
}

void CommandLineTest::damagedStoreReadsAsDamaged_data() {
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QStringList>("verbs");
    QTest::addColumn<QByteArray>("said");
    const QStringList reading = {"status", "history", "summary"};
    QTest::newRow("not a database")
        << "garbage" << (reading + QStringList{"defaults read", "defaults write"})
        << QByteArray("not a database");
    QTest::newRow("file cut short") << "cut" << reading << QByteArray("malformed");
    QTest::newRow("day does not decode")
        << "undecodable" << reading << QByteArray("are damaged and do not read as a day");
    QTest::newRow("file is a symbolic link")
        << "file link" << (reading + QStringList{"defaults write"})
        << QByteArray("is a symbolic link; refusing");
}

void CommandLineTest::damagedStoreReadsAsDamaged() {
    QFETCH(QString, fault);
    QFETCH(QStringList, verbs);
    QFETCH(QByteArray, said);
    const QString todayKey =
        "mindmeter.sessions." + QDateTime::currentDateTimeUtc().date().toString(Qt::ISODate);
    QDir().mkpath(QFileInfo(dbPath()).absolutePath());
    QString target = dbPath(); // the file whose bytes must stay as they are
    if (fault == "garbage") {
        QFile f(dbPath());
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QByteArray(4096, 'x'));
    } else if (fault == "cut") {
        // A real store holding a large day (its overflow pages at the end), cut short.
        QList<QPair<QString, qint64>> sessions(1500, {"reasoning", 10});
        QCOMPARE(run({"defaults", "write", todayKey, "-data-file", "-"},
                     day(QDateTime::currentDateTimeUtc().date(), sessions))
                     .exitCode,
                 0);
        QVERIFY(QFileInfo(dbPath()).size() > 100000);
        QVERIFY(::truncate(QFile::encodeName(dbPath()).constData(), 3 * 4096) == 0);
    } else if (fault == "undecodable") {
        auto db = SqliteDefaults::open(dbPath());
        QVERIFY(db && db->setData(todayKey, R"([{"id":"x"}])"));
    } else { // the file is a symbolic link
        target = m_dir->filePath("elsewhere.sqlite3");
        QVERIFY(SqliteDefaults::open(target));
        QVERIFY(QFile::link(target, dbPath()));
    }
    const auto fingerprint = [&] {
        QFile f(target);
        return QDir(QFileInfo(target).path()).entryList(QDir::Files | QDir::Hidden).join(',') +
               (f.open(QIODevice::ReadOnly) ? f.readAll().toHex() : QByteArray());
    };
    const QString before = fingerprint();
    for (const QString& verb : verbs) {
        const QStringList args =
            verb.split(' ') +
            (verb == "defaults write" ? QStringList{"k", "-int", "1"} : QStringList{});
        const Result r = run(args);
        QCOMPARE(r.exitCode, 1);
        QVERIFY2(r.err.contains(said), qPrintable(verb + ": " + r.err));
        QVERIFY2(r.out.isEmpty(), qPrintable(verb + ": " + r.out)); // never an empty day
    }
    QCOMPARE(fingerprint(), before); // left as it was: reading never writes
}

void CommandLineTest::trayWithoutADisplay() {
    // No verb starts the tray; with no display it says so instead of crashing in Qt.
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        env.remove(name);
    env.insert("XDG_DATA_HOME", m_dir->path());
    p.setProcessEnvironment(env);
    p.start(MINDMETER_EXECUTABLE, {});
    QVERIFY(p.waitForFinished(30000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 1);
    QVERIFY(p.readAllStandardError().startsWith("mindmeter: no display"));
    QVERIFY(!QFile::exists(dbPath())); // nothing was opened
}

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_commandline.moc"
