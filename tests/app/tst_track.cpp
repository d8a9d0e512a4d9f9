// `mindmeter track` as a user runs it, on a private X server (see support/run-with-xvfb.sh).

#include "TrackerProcess.h"
#include "X11Windows.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

namespace {

bool git(const QString& repo, const QStringList& args) {
    QProcess p;
    p.setWorkingDirectory(repo);
    p.start("git",
            QStringList{"-c", "user.name=Test", "-c", "user.email=test@example.invalid"} + args);
    return p.waitForFinished(20000) && p.exitCode() == 0;
}

void writeLines(const QString& path, int lines) {
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    for (int i = 0; i < lines; ++i)
        f.write("print(" + QByteArray::number(i) + ")\n");
}

} // namespace

class TrackTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void recordsTheFocusedTerminalByTheUsersRules();
    void creditsSavesAndCommitsUnderHome();
    void refusesWithoutADisplay();
    void restsWhenTheXServerGoes();

private:
    // A tracker with 50 ms ticks (a counted minute every 0.3 s), tracking, with an xterm in
    // front and the user present.
    void startTrack();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<TrackerProcess> m_track;
    X11Windows m_windows;
    quint32 m_term = 0;
};

void TrackTest::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    m_track = std::make_unique<TrackerProcess>(MINDMETER_EXECUTABLE, m_dir->path());
}

void TrackTest::startTrack() {
    if (!m_term)
        m_term = m_windows.openTerminal("xterm", "XTerm");
    QVERIFY(m_term);
    X11Windows::activate(m_term);
    X11Windows::moveMouse(50, 50);
    m_track->start(50);
    QVERIFY2(m_track->waitUntilTracking(), m_track->said().constData());
}

void TrackTest::recordsTheFocusedTerminalByTheUsersRules() {
    const QString key = "mindmeter.categoryRules";
    const QString xterm = "com.apple.Terminal.XTerm";
    int status = 0;
    // A value that cannot be read is ignored as a whole, and said so; nothing is built on it.
    m_track->run(
        {"defaults", "write", key, "-string", R"([{"app": "com.apple.Terminal", "rate": 5}])"});
    startTrack();
    QVERIFY2(m_track->said().contains("category rules (" + key.toUtf8() +
                                      ") cannot be read and are ignored"),
             m_track->said().constData());
    m_track->run({"categories", "set", xterm, "Writing"}, &status);
    QCOMPARE(status, 1);
    m_track->run({"defaults", "delete", key});

    // A rule set while tracking applies from the next minute.
    QTRY_VERIFY_WITH_TIMEOUT(m_track->sessions().size() >= 3, 30000);
    const qsizetype before = m_track->sessions().size();
    const QByteArray out = m_track->run({"categories", "set", xterm, "Writing"}, &status);
    QVERIFY2(status == 0, out.constData());
    const qsizetype after = m_track->sessions().size();
    QTRY_VERIFY_WITH_TIMEOUT(m_track->sessions().size() >= after + 4, 30000);
    QVERIFY(m_track->stop());
    const QList<ActivitySession> day = m_track->sessions();
    qint64 terminal = 0;
    for (qsizetype i = 0; i < day.size(); ++i) {
        const ActivitySession& s = day[i];
        QCOMPARE(s.appBundleID, xterm);
        QCOMPARE(s.appName, QString("XTerm"));
        // Terminal time earns 8 per minute, writing 32. Sessions recorded while the rule was
        // being written may be either; the last one is the part-minute flushed at the stop.
        if (i < before || i > after)
            QCOMPARE(s.tokenType, i < before ? TokenType::reasoning : TokenType::output);
        if (i > after && i < day.size() - 1)
            QCOMPARE(s.rawTokens, qint64(32));
        terminal += s.tokenType == TokenType::reasoning ? s.rawTokens : 0;
    }
    QVERIFY(terminal >= 8 * (before - 1));
    const QJsonObject totals = QJsonDocument::fromJson(m_track->run({"status", "--json"})).object();
    QCOMPARE(totals["tokensByType"].toObject()["reasoning"].toInteger(), terminal * 3);

    // The lock went with the process: tracking can start again.
    startTrack();
    QVERIFY(m_track->stop(SIGINT));
}

void TrackTest::creditsSavesAndCommitsUnderHome() {
    // A repository under the home folder, committed before tracking starts so the warm-up
    // learns its HEAD.
    const QString repo = m_dir->filePath("home/projects/widget");
    QVERIFY(QDir().mkpath(repo));
    QVERIFY(git(repo, {"init", "-q"}));
    writeLines(repo + "/main.py", 10);
    QVERIFY(git(repo, {"add", "."}));
    QVERIFY(git(repo, {"commit", "-q", "-m", "start"}));

    startTrack();
    QTest::qWait(1000); // the file watcher's first walk and the warm-up
    // A save, then a commit of 100 changed lines.
    writeLines(repo + "/tool.py", 100);
    QTest::qWait(600); // the save is seen in a scan of its own
    QVERIFY(git(repo, {"add", "."}));
    QVERIFY(git(repo, {"commit", "-q", "-m", "tool"}));
    const auto found = [&](const QString& bundleID, const QString& namePrefix) {
        const QList<ActivitySession> all = m_track->sessions();
        return std::any_of(all.begin(), all.end(), [&](const ActivitySession& s) {
            return s.appBundleID == bundleID && s.appName.startsWith(namePrefix);
        });
    };
    QTRY_VERIFY_WITH_TIMEOUT(found("git.autodetect", "Git [widget]: commit +100 lines"), 30000);
    QVERIFY(found("spotlight.source", "\U0001F4BB Code \u2014 "));
    QVERIFY(m_track->stop());
}

void TrackTest::refusesWithoutADisplay() {
    QProcessEnvironment env = m_track->environment();
    env.remove("DISPLAY");
    env.remove("WAYLAND_DISPLAY");
    env.insert("XDG_RUNTIME_DIR", m_dir->path()); // no compositor listens here
    const ProcessResult r = runProcess(MINDMETER_EXECUTABLE, {"track"}, env);
    QCOMPARE(r.exitCode, 1);
    QVERIFY2(r.err.startsWith("mindmeter: cannot track: no way to follow this desktop ("),
             r.err.constData());
}

void TrackTest::restsWhenTheXServerGoes() {
    // An X server of the test's own goes away under the tracker, which must not spin on the
    // dead connection.
    QProcess xvfb;
    xvfb.start("Xvfb", {"-displayfd", "1", "-screen", "0", "640x480x24", "-nolisten", "tcp"});
    QVERIFY(xvfb.waitForReadyRead(20000)); // the display number, once it accepts clients
    QProcessEnvironment env = m_track->environment();
    env.insert("DISPLAY", ":" + xvfb.readAllStandardOutput().trimmed());
    m_track->setEnvironment(env);
    m_track->start(50);
    QVERIFY2(m_track->waitUntilTracking(), m_track->said().constData());
    xvfb.kill();
    QVERIFY(xvfb.waitForFinished());
    QVERIFY(m_track->waitForMessage("the connection to the X server was lost"));
    // Nanoseconds on a CPU so far: the first field of schedstat.
    const auto cpu = [&] {
        QFile f(QStringLiteral("/proc/%1/schedstat").arg(m_track->pid()));
        return f.open(QIODevice::ReadOnly) ? f.readAll().split(' ').value(0).toDouble() / 1e9 : -1;
    };
    const double before = cpu();
    QTest::qWait(2000);
    const double used = cpu() - before;
    QVERIFY2(before >= 0 && used < 0.5, qPrintable(QString("%1 s of CPU in 2 s").arg(used)));
    QVERIFY(m_track->stop());
}

QTEST_GUILESS_MAIN(TrackTest)
#include "tst_track.moc"
