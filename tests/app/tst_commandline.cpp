#include "LocalHttpServer.h"
#include "RunProcess.h"

#include "model/SessionCodec.h"
#include "store/SqliteDefaults.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// One session a minute long.
struct Seed {
    QString type;
    qint64 raw;
    QDateTime start;
    QString app = QStringLiteral("Terminal");
};

// A picture with something drawn in it: many distinct colours, not one flat fill.
int distinctColours(const QImage& image) {
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 2)
        for (int x = 0; x < image.width(); x += 2)
            colours.insert(image.pixel(x, y));
    return int(colours.size());
}

} // namespace

// The command line as a user or a status bar runs it: the real executable, no display, a
// throw-away data folder, a zone in which it is now early afternoon (so sessions minutes or
// hours old are today whenever the test runs) and, for `update`, a local HTTP server.
class CommandLineTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void writeReadDelete();
    void usageErrorsWriteNothing_data();
    void usageErrorsWriteNothing();
    void statusLabelAndClass_data();
    void statusLabelAndClass();
    void statusOfADay();
    void historyOverWrittenDays();
    void exportAndSummaryOfWrittenDays();
    void exportReplacesFilesWhole();
    void damagedStoreReadsAsDamaged_data();
    void damagedStoreReadsAsDamaged();
    void updateCheck();
    void snapshotWritesEveryPicture();
    void trayWithoutADisplay();

private:
    ProcessResult run(const QStringList& args, const QByteArray& input = {});
    int setDefault(const QString& key, const char* type, const QString& value) {
        return run({"defaults", "write", key, type, value}).exitCode;
    }
    QDate localDay(int daysBack) const { return m_today.addDays(-daysBack); }
    QDateTime localTime(int daysBack, int hour, int minute = 0) const {
        return QDateTime(localDay(daysBack), QTime(hour, minute), Qt::UTC)
            .addSecs(-m_offsetHours * 3600);
    }
    QString dayKey(int daysBack) const {
        return "mindmeter.sessions." + localDay(daysBack).toString(Qt::ISODate);
    }
    static QByteArray encode(const QList<Seed>& seeds);
    int writeDay(int daysBack, const QList<Seed>& seeds) {
        return run({"defaults", "write", dayKey(daysBack), "-data-file", "-"}, encode(seeds))
            .exitCode;
    }
    QString dbPath() const { return m_dir->filePath("mindmeter/mindmeter.sqlite3"); }

    std::unique_ptr<QTemporaryDir> m_dir;
    LocalHttpServer m_server;
    QString m_vendor; // the update site, when not the local server
    qint64 m_fileSizeLimit = 0;
    int m_offsetHours = 0;
    QDate m_today;
};

void CommandLineTest::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_vendor.clear();
    m_fileSizeLimit = 0;
    QVERIFY(m_server.isListening() || m_server.listen());
    const QDateTime utc = QDateTime::currentDateTimeUtc();
    m_offsetHours = 13 - utc.time().hour(); // local time 13:xx
    m_today = utc.addSecs(m_offsetHours * 3600).date();
}

ProcessResult CommandLineTest::run(const QStringList& args, const QByteArray& input) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        env.remove(name);
    env.insert("XDG_DATA_HOME", m_dir->path());
    env.insert("TZ", "MMT" + QString::number(-m_offsetHours)); // POSIX: the sign is inverted
    env.insert("LC_ALL", "en_US.UTF-8");
    env.insert("MINDMETER_VENDOR_URL", m_vendor.isEmpty() ? m_server.baseUrl() : m_vendor);
    return runProcess(
        MINDMETER_EXECUTABLE, args, env, input, 120000, [limitBytes = m_fileSizeLimit] {
            if (limitBytes == 0)
                return;
            const rlimit limit{rlim_t(limitBytes), rlim_t(limitBytes)};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            ::signal(SIGXFSZ, SIG_IGN); // a write past the limit fails instead of killing
        });
}

QByteArray CommandLineTest::encode(const QList<Seed>& seeds) {
    QList<ActivitySession> list;
    for (const Seed& s : seeds) {
        const Timestamp t = Timestamp::fromDateTime(s.start);
        list.append({QUuid::createUuid(), "com.example.app", s.app,
                     *TokenTypes::fromRawValue(s.type), t, t.addSeconds(60), s.raw});
    }
    return SessionCodec::encodeDay(list);
}

void CommandLineTest::writeReadDelete() {
    QCOMPARE(setDefault("mindmeter.dailyTokenBaseline", "-int", "30000"), 0);
    QCOMPARE(setDefault("mindmeter.pro.endOfDayTime", "-float", "64800.5"), 0);
    QCOMPARE(setDefault("mindmeter.pro.alertEnabled", "-bool", "YES"), 0);
    QCOMPARE(setDefault("mindmeter.menuBarStyle", "-string", "countOnly"), 0);
    QList<QByteArray> read;
    for (const char* key : {"mindmeter.dailyTokenBaseline", "mindmeter.pro.endOfDayTime",
                            "mindmeter.pro.alertEnabled"})
        read << run({"defaults", "read", key}).out;
    QCOMPARE(read, QList<QByteArray>({"30000\n", "64800.5\n", "1\n"}));

    ProcessResult r = run({"defaults", "read"});
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
    QTest::newRow("export without path") << QStringList{"export", "--csv"};
    QTest::newRow("summary with an argument") << QStringList{"summary", "--json"};
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
    const ProcessResult r = run(args);
    QCOMPARE(r.exitCode, 2);
    QVERIFY(r.out.isEmpty());
    QVERIFY2(r.err.startsWith("mindmeter: "), r.err.constData());
    QVERIFY(r.err.endsWith("\nTry 'mindmeter help' for usage.\n"));
    QCOMPARE(r.err.count('\n'), 2);    // one line of error, one of hint
    QVERIFY(!QFile::exists(dbPath())); // the store was not even created
}

void CommandLineTest::statusLabelAndClass_data() {
    QTest::addColumn<qint64>("baseline");
    QTest::addColumn<QString>("style");
    QTest::addColumn<QString>("type");
    QTest::addColumn<qint64>("raw");
    QTest::addColumn<qint64>("endedSecondsAgo");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("colourClass");
    QTest::addColumn<int>("percentage");

    const auto row = [](const char* tag, qint64 baseline, const char* style, const char* type,
                        qint64 raw, qint64 ago, const QString& label, const char* colour,
                        int percentage) {
        QTest::newRow(tag) << baseline << style << type << raw << ago << label << colour
                           << percentage;
    };
    // Input tokens weigh 1, so raw counts over a budget of 1000 give exact saturations.
    row("empty day", 0, "", "", 0, 0, " 0 \u25cc", "normal", 0);
    row("0.799 is normal, idle", 1000, "", "input", 799, 600, " 799 \u25cc", "normal", 80);
    row("exactly 0.8 is orange, reading", 1000, "", "input", 800, 20, " 800 \u00b6", "orange", 80);
    row("exactly 0.9 is red", 1000, "", "input", 900, 20, " 900 \u00b6", "red", 90);
    // 4100 reasoning tokens weigh 12,300.
    row("thousands, reasoning", 25000, "", "reasoning", 4100, 20, " 12.3k \u26a1\ufe0e", "normal",
        49);
    row("below 1000 stays whole, writing", 25000, "", "output", 499, 20, " 998 \u2328", "normal",
        4);
    row("1000 is 1.0k, with AI", 25000, "", "ai", 400, 20, " 1.0k \u2726", "normal", 4);
    row("over the budget is capped", 25000, "", "reasoning", 10000, 20, " 30.0k \u26a1\ufe0e",
        "red", 100);
    row("three minutes ago is no longer in front", 25000, "", "reasoning", 100, 180, " 300 \u25cc",
        "normal", 1);
    // An icon-only style empties the label, not the colour.
    row("icon only", 1000, "iconOnly", "reasoning", 300, 20, "", "red", 90);
}

void CommandLineTest::statusLabelAndClass() {
    QFETCH(qint64, baseline);
    QFETCH(QString, style);
    QFETCH(QString, type);
    QFETCH(qint64, raw);
    QFETCH(qint64, endedSecondsAgo);
    QFETCH(QString, label);
    QFETCH(QString, colourClass);
    QFETCH(int, percentage);
    if (baseline > 0)
        QCOMPARE(setDefault("mindmeter.dailyTokenBaseline", "-int", QString::number(baseline)), 0);
    if (!style.isEmpty())
        QCOMPARE(setDefault("mindmeter.menuBarStyle", "-string", style), 0);
    if (!type.isEmpty()) {
        const QDateTime end = QDateTime::currentDateTimeUtc().addSecs(-endedSecondsAgo);
        QCOMPARE(writeDay(0, {{type, raw, end.addSecs(-60)}}), 0);
    }

    QCOMPARE(QString::fromUtf8(run({"status", "--format", "plain"}).out), label + u'\n');
    const ProcessResult r = run({"status", "--format", "waybar"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out.count('\n'), 1); // one line per update, as a status bar reads it
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    QCOMPARE(o.keys(), QStringList({"class", "percentage", "text", "tooltip"}));
    QCOMPARE(o["text"].toString(), label);
    QCOMPARE(o["class"].toString(), colourClass);
    QCOMPARE(o["percentage"].toInt(-1), percentage);
}

void CommandLineTest::statusOfADay() {
    // 2001 reasoning and 1000 input weighted, both in the last hour, 5 recovered: 2996 of
    // 25,000. Two kinds of four, one twice the other, give a temperature of 46%.
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QByteArray json =
        encode({{"input", 1000, now.addSecs(-360)}, {"reasoning", 2000 / 3 + 1, now.addSecs(-90)}});
    QCOMPARE(run({"defaults", "write", dayKey(0), "-data-file", "-"}, json).exitCode, 0);
    QCOMPARE(setDefault("mindmeter.recovery." + localDay(0).toString(Qt::ISODate), "-int", "5"), 0);
    QCOMPARE(run({"defaults", "read", dayKey(0)}).out, json + "\n");

    const QJsonObject o = QJsonDocument::fromJson(run({"status", "--json"}).out).object();
    QCOMPARE(o["day"].toString(), localDay(0).toString(Qt::ISODate));
    QCOMPARE(o["totalWeighted"].toInteger(), 2996);
    QCOMPARE(o["recoveredTokens"].toInteger(), 5);
    QCOMPARE(o["sessionCount"].toInteger(), 2);
    QCOMPARE(o["tokensByType"].toObject(), QJsonObject({{"reasoning", 2001}, {"input", 1000}}));
    QCOMPARE(o["contextSaturation"].toDouble(), 2996.0 / 25000.0);
    QCOMPARE(o["velocityLastHour"].toInteger(), 3001);
    QCOMPARE(run({"status", "--format", "json"}).out, run({"status", "--json"}).out);

    const QJsonObject waybar =
        QJsonDocument::fromJson(run({"status", "--format", "waybar"}).out).object();
    QCOMPARE(waybar["tooltip"].toString().split(u'\n'),
             QStringList({"Mindmeter: 3.0k of 25.0k tokens today", "Saturation 12%",
                          "Temperature 46%", "Last hour 3.0k"}));

    const ProcessResult text = run({"status", "--format", "text"});
    QCOMPARE(text.exitCode, 0);
    QVERIFY2(text.out.startsWith("Today " + localDay(0).toString(Qt::ISODate).toUtf8() +
                                 ": 3.0k of 25.0k tokens (12%)\n"),
             text.out.constData());
    QCOMPARE(run({"status"}).out, text.out);
}

void CommandLineTest::historyOverWrittenDays() {
    // Nine days of 100 input tokens (today and eight before; 300 on the eighth), days 10 and
    // 11 back empty.
    for (int back = 0; back <= 8; ++back)
        QCOMPARE(writeDay(back, {{"input", back == 8 ? 300 : 100, localTime(back, 9)}}), 0);
    ProcessResult r = run({"history", "--json"});
    QCOMPARE(r.exitCode, 0);
    const QJsonObject o = QJsonDocument::fromJson(r.out).object();
    const QJsonArray days = o["days"].toArray();
    QCOMPARE(days.size(), 9);
    QCOMPARE(days[0].toObject()["label"].toString(), QString("Today"));
    QCOMPARE(days[0].toObject()["isToday"].toBool(), true);
    QCOMPARE(days[1].toObject()["label"].toString(), QString("Yest."));
    QCOMPARE(days[2].toObject()["label"].toString(), QLocale("en_US").toString(localDay(2), "ddd"));
    QCOMPARE(days[8].toObject()["date"].toString(), localDay(8).toString(Qt::ISODate));
    QCOMPARE(days[8].toObject()["tokens"].toInteger(), 300);
    QCOMPARE(o["weekOverWeek"].toObject(),
             QJsonObject({{"this", 700}, {"last", 400}, {"change", 0.75}}));

    r = run({"history", "--days", "3"});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out.count('\n'), 3);
    QVERIFY(r.out.startsWith(localDay(0).toString(Qt::ISODate).toUtf8() + "  Today "));
}

void CommandLineTest::exportAndSummaryOfWrittenDays() {
    QCOMPARE(setDefault("mindmeter.dailyTokenBaseline", "-int", "10000"), 0);
    QCOMPARE(writeDay(0, {{"ai", 400, localTime(0, 1), "ChatGPT"},
                          {"reasoning", 500, localTime(0, 2, 10), "Term, \"x\""},
                          {"input", 7, localTime(0, 2, 30), "Mail"}}),
             0);
    QCOMPARE(writeDay(1, {{"output", 1000, localTime(1, 10), "Writer"}}), 0);
    QCOMPARE(writeDay(3, {{"input", 12000, localTime(3, 23), "Mail"}}), 0);

    ProcessResult r = run({"export", "--csv", "-"});
    QCOMPARE(r.exitCode, 0);
    QVERIFY(r.err.isEmpty());
    const auto date = [this](int back) { return localDay(back).toString(Qt::ISODate).toUtf8(); };
    QCOMPARE(r.out, "Date,Weighted Total,AI Collab,Reasoning,Output,Input,Raw Total,Sessions,"
                    "Peak Hour,Top App,Saturation %\n" +
                        date(0) + ",2507,1000,1500,0,7,907,3,2 AM,\"Term, \"\"x\"\"\",25.1\n" +
                        date(1) + ",2000,0,0,2000,0,1000,1,10 AM,Writer,20.0\n" + date(3) +
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

void CommandLineTest::exportReplacesFilesWhole() {
    // One application name long enough to make a CSV of about 150 KB.
    QCOMPARE(writeDay(0, {{"input", 5, localTime(0, 3), QString(150000, u'a')}}), 0);
    const QString path = m_dir->filePath("history.csv");
    const auto writeOld = [&] {
        QFile old(path);
        return old.open(QIODevice::WriteOnly) && old.write("old export\n") > 0;
    };
    const auto contents = [&] {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    };
    QVERIFY(writeOld());
    ProcessResult r = run({"export", "--csv", path});
    QCOMPARE(r.exitCode, 0);
    QVERIFY(r.out.isEmpty());
    QVERIFY(contents().size() > 150000);
    QCOMPARE(contents(), run({"export", "--csv", "-"}).out);

    // The file system refuses the write half way (a 100 KB file-size limit): the old file
    // stays whole and no partial file is left beside it.
    QVERIFY(writeOld());
    m_fileSizeLimit = 100 * 1024;
    r = run({"export", "--csv", path});
    QCOMPARE(r.exitCode, 1);
    QVERIFY2(r.err.startsWith("mindmeter: cannot write " + path.toUtf8() + ": "),
             r.err.constData());
    QCOMPARE(r.err.count('\n'), 1);
    QCOMPARE(contents(), QByteArray("old export\n"));
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files | QDir::Hidden), QStringList{"history.csv"});
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
    QDir().mkpath(QFileInfo(dbPath()).absolutePath());
    QString target = dbPath(); // the file whose bytes must stay as they are
    if (fault == "garbage") {
        QFile f(dbPath());
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QByteArray(4096, 'x'));
    } else if (fault == "cut") {
        // A real store holding a large day (its overflow pages at the end), cut short.
        QList<Seed> large;
        for (int i = 0; i < 1500; ++i)
            large.append({"reasoning", 10, localTime(0, 0).addSecs(i * 60)});
        QCOMPARE(writeDay(0, large), 0);
        QVERIFY(QFileInfo(dbPath()).size() > 100000);
        QVERIFY(::truncate(QFile::encodeName(dbPath()).constData(), 3 * 4096) == 0);
    } else if (fault == "undecodable") {
        auto db = SqliteDefaults::open(dbPath());
        QVERIFY(db && db->setData(dayKey(0), R"([{"id":"x"}])"));
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
        const ProcessResult r = run(args);
        QCOMPARE(r.exitCode, 1);
        QVERIFY2(r.err.contains(said), qPrintable(verb + ": " + r.err));
        QVERIFY2(r.out.isEmpty(), qPrintable(verb + ": " + r.out)); // never an empty day
    }
    QCOMPARE(fingerprint(), before); // left as it was: reading never writes
}

void CommandLineTest::updateCheck() {
    const QByteArray digest = QCryptographicHash::hash("pkg", QCryptographicHash::Sha256).toHex();
    m_server.answer("/version.json",
                    HttpAnswer::make(200, R"({"version":"9.1.0","sha256":")" + digest + R"("})"));
    ProcessResult r = run({"update", "--check", "--json"});
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

    // Which answers are refused is the update checker's own test; here, how the command says so.
    m_vendor = "http://127.0.0.1:9";
    r = run({"update", "--check", "--json"});
    QCOMPARE(r.exitCode, 1);
    QVERIFY(r.out.isEmpty());
    QVERIFY2(r.err.endsWith("mindmeter: update check failed: Connection refused\n"),
             r.err.constData());
}

void CommandLineTest::snapshotWritesEveryPicture() {
    const QString shots = m_dir->filePath("shots");
    const ProcessResult r = run({"--snapshot", shots});
    QVERIFY2(r.exitCode == 0, r.err.constData());
    // Every card drawn alone, in both themes.
    const QStringList cards = QDir(shots).entryList({"card-*-light.png"});
    QVERIFY(cards.size() >= 10);
    for (const QString theme : {"light", "dark"}) {
        for (const QString whole : {"popover", "onboarding"}) {
            const QImage image(shots + QStringLiteral("/%1-%2.png").arg(whole, theme));
            QCOMPARE(image.size(), QSize(380, 460));
            QVERIFY2(distinctColours(image) > 40, qPrintable(whole));
        }
        const QImage full(shots + "/dashboard-" + theme + ".png");
        QCOMPARE(full.width(), 380);
        QVERIFY(full.height() > 1000); // every card, not only the first screen
        for (QString card : cards) {
            const QImage image(shots + '/' + card.replace("-light.", "-" + theme + '.'));
            QVERIFY2(image.width() > 150 && image.height() > 20, qPrintable(card));
            QVERIFY2(distinctColours(image) > 10, qPrintable(card));
        }
    }
    QVERIFY(QImage(shots + "/popover-light.png") != QImage(shots + "/popover-dark.png"));

    // A folder that cannot be made.
    const ProcessResult refused = run({"--snapshot", m_dir->filePath("shots/popover-dark.png/x")});
    QCOMPARE(refused.exitCode, 1);
    QVERIFY2(refused.err.contains("mindmeter: cannot"), refused.err.constData());
}

void CommandLineTest::trayWithoutADisplay() {
    // No verb starts the tray; with no display it says so instead of crashing in Qt.
    const ProcessResult r = run({});
    QCOMPARE(r.exitCode, 1);
    QVERIFY(r.err.startsWith("mindmeter: no display"));
    QVERIFY(!QFile::exists(dbPath())); // nothing was opened
}

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_commandline.moc"
