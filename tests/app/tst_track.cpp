// `mindmeter track` as a user runs it, on a private X server (see support/run-with-xvfb.sh).

#include "RunProcess.h"
#include "TrackerProcess.h"
#include "X11Windows.h"

#include "model/SessionCodec.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <signal.h>

class TrackTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void recordsTheFocusedTerminal();
    void creditsSavesAndCommitsUnderHome();
    void userRulesApplyFromTheNextMinute();
    void refusesWithoutADisplay_data();
    void refusesWithoutADisplay();

private:
    // A tracker with 50 ms ticks (a counted minute every 0.3 s), tracking.
    std::unique_ptr<TrackerProcess> startTrack();
    QByteArray run(const QStringList& args, int* exitCode = nullptr);
    // Today's stored sessions, as `defaults read` gives them.
    QList<ActivitySession> sessions();
    void stop(TrackerProcess& track, int signal = SIGTERM);

    std::unique_ptr<QTemporaryDir> m_dir;
    X11Windows m_windows;
};

void TrackTest::init() {
    m_dir = std::make_unique<QTemporaryDir>();
}

std::unique_ptr<TrackerProcess> TrackTest::startTrack() {
    auto track = std::make_unique<TrackerProcess>(MINDMETER_EXECUTABLE, m_dir->path());
    track->start(50);
    [&] { QVERIFY2(track->waitUntilTracking(), track->said().constData()); }();
    return track;
}

QByteArray TrackTest::run(const QStringList& args, int* exitCode) {
    const ProcessResult r =
        runProcess(MINDMETER_EXECUTABLE, args,
                   TrackerProcess(MINDMETER_EXECUTABLE, m_dir->path()).environment());
    if (exitCode)
        *exitCode = r.exitCode;
    return r.out + r.err;
}

QList<ActivitySession> TrackTest::sessions() {
    const QString day = QDateTime::currentDateTimeUtc().date().toString(Qt::ISODate);
    return SessionCodec::decodeDay(run({"defaults", "read", "mindmeter.sessions." + day}))
        .value_or(QList<ActivitySession>{});
}

void TrackTest::stop(TrackerProcess& track, int signal) {
    ::kill(pid_t(track.pid()), signal);
    QVERIFY(track.process().waitForFinished(10000));
    QCOMPARE(track.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(track.process().exitCode(), 0);
}

void TrackTest::recordsTheFocusedTerminal() {
    const quint32 term = m_windows.openTerminal("xterm", "XTerm");
    QVERIFY(term);
    X11Windows::activate(term);
    X11Windows::moveMouse(50, 50); // the user is present

    const auto track = startTrack();

    // Fifty-millisecond ticks: a counted minute every 0.3 s.
    QTRY_VERIFY_WITH_TIMEOUT(sessions().size() >= 3, 30000);
    stop(*track);
    const QList<ActivitySession> day = sessions();
    qint64 raw = 0;
    for (const ActivitySession& s : day) {
        QCOMPARE(s.appBundleID, QString("com.apple.Terminal.XTerm"));
        QCOMPARE(s.appName, QString("XTerm"));
        QCOMPARE(s.tokenType, TokenType::reasoning);
        raw += s.rawTokens;
    }
    // Terminal time earns 8 per minute; whole minutes at the neutral multiplier, plus the
    // part-minute flushed when tracking stopped.
    QVERIFY(raw >= 8 * (day.size() - 1));
    const QJsonObject status2 = QJsonDocument::fromJson(run({"status", "--json"})).object();
    QCOMPARE(status2["tokensByType"].toObject()["reasoning"].toInteger(), raw * 3);

    // The lock went with the process: tracking can start again.
    stop(*startTrack(), SIGINT);
}

namespace {

bool git(const QString& repo, const QStringList& args) {
    QProcess p;
    p.setWorkingDirectory(repo);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("GIT_AUTHOR_NAME", "Test");
    env.insert("GIT_AUTHOR_EMAIL", "test@example.invalid");
    env.insert("GIT_COMMITTER_NAME", "Test");
    env.insert("GIT_COMMITTER_EMAIL", "test@example.invalid");
    p.setProcessEnvironment(env);
    p.start("git", args);
    return p.waitForFinished(20000) && p.exitCode() == 0;
}

void writeLines(const QString& path, int lines) {
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    for (int i = 0; i < lines; ++i)
        f.write("print(" + QByteArray::number(i) + ")\n");
}

} // namespace

void TrackTest::creditsSavesAndCommitsUnderHome() {
    // A repository under the home folder, touched just before tracking starts so the
    // warm-up learns its HEAD.
    const QString repo = m_dir->filePath("home/projects/widget");
    QVERIFY(QDir().mkpath(repo));
    QVERIFY(git(repo, {"init", "-q"}));
    writeLines(repo + "/main.py", 10);
    QVERIFY(git(repo, {"add", "."}));
    QVERIFY(git(repo, {"commit", "-q", "-m", "start"}));

    const auto track = startTrack();
    QTest::qWait(1000); // the file watcher's first walk and the warm-up

    // A save, then a commit of 100 changed lines.
    writeLines(repo + "/tool.py", 100);
    QTest::qWait(600); // the save is seen in a scan of its own
    QVERIFY(git(repo, {"add", "."}));
    QVERIFY(git(repo, {"commit", "-q", "-m", "tool"}));
    const auto found = [&](const QString& bundleID, const QString& namePrefix) {
        for (const ActivitySession& s : sessions())
            if (s.appBundleID == bundleID && s.appName.startsWith(namePrefix))
                return true;
        return false;
    };
    QTRY_VERIFY_WITH_TIMEOUT(found("git.autodetect", "Git [widget]: commit +100 lines"), 30000);
    QVERIFY(found("spotlight.source", "\U0001F4BB Code \u2014 "));
    stop(*track);
}

void TrackTest::userRulesApplyFromTheNextMinute() {
    const QString key = "mindmeter.categoryRules";
    const QString xterm = "com.apple.Terminal.XTerm";
    int status = 0;
    // A value that cannot be read is ignored as a whole, and said so.
    run({"defaults", "write", key, "-string", R"([{"app": "com.apple.Terminal", "rate": 5}])"});
    const quint32 term = m_windows.openTerminal("xterm", "XTerm");
    QVERIFY(term);
    X11Windows::activate(term);
    X11Windows::moveMouse(50, 50);
    const auto track = startTrack();
    const QByteArray said = track->said();
    QVERIFY2(said.contains("category rules (" + key.toUtf8() + ") cannot be read and are ignored"),
             said.constData());
    QVERIFY(run({"categories"}, &status).contains("cannot be read and are ignored"));
    QCOMPARE(status, 0);
    run({"categories", "set", xterm, "Writing"}, &status);
    QCOMPARE(status, 1); // nothing is built on an unreadable list
    run({"defaults", "delete", key});

    // Each step: the change, then whole minutes recorded after it. The first session to
    // appear after the command returned may have been counted just before the change; every
    // later one earns the new rate.
    struct Step {
        QStringList change;
        TokenType type;
        qint64 perMinute;
    };
    for (const Step& step : {Step{{"set", xterm, "Writing"}, TokenType::output, 32},
                             Step{{"remove", xterm}, TokenType::reasoning, 8},
                             Step{{"set", "com.apple.terminal", "ai", "1000"}, TokenType::ai, 1000},
                             Step{{"remove", "com.apple.Terminal"}, TokenType::reasoning, 8}}) {
        const QByteArray out = run(QStringList{"categories"} + step.change, &status);
        QVERIFY2(status == 0, out.constData());
        const qsizetype before = sessions().size();
        QList<ActivitySession> later;
        QTRY_VERIFY_WITH_TIMEOUT((later = sessions().mid(before + 1)).size() >= 3, 30000);
        for (const ActivitySession& s : later) {
            QCOMPARE(s.appBundleID, xterm);
            QCOMPARE(s.tokenType, step.type);
            QCOMPARE(s.rawTokens, step.perMinute);
        }
    }
    // Removing a rule that is not there changes nothing and says so.
    QVERIFY(
        run({"categories", "remove", xterm}, &status).contains("no rule for " + xterm.toUtf8()));
    QCOMPARE(status, 1);
    stop(*track);
}

void TrackTest::refusesWithoutADisplay_data() {
    QTest::addColumn<QStringList>("unset");
    QTest::addColumn<QStringList>("set");
    QTest::addColumn<QString>("message");
    QTest::newRow("no display") << QStringList{"DISPLAY", "WAYLAND_DISPLAY"} << QStringList{}
                                << "cannot track: no way to follow this desktop (GNOME Shell: "
                                   "not a GNOME Shell session on Wayland; wlroots: no "
                                   "Wayland display: WAYLAND_DISPLAY is not set; KWin: no "
                                   "Wayland display: WAYLAND_DISPLAY is not set; X11: no X11 "
                                   "display: DISPLAY is not set)";
    QTest::newRow("Wayland gone") << QStringList{"DISPLAY"}
                                  << QStringList{"WAYLAND_DISPLAY=wayland-4711",
                                                 "XDG_SESSION_TYPE=wayland"}
                                  << "cannot connect to the Wayland display wayland-4711";
    QTest::newRow("display gone") << QStringList{"WAYLAND_DISPLAY"} << QStringList{"DISPLAY=:4711"}
                                  << "cannot connect to the X11 display :4711";
}

void TrackTest::refusesWithoutADisplay() {
    QFETCH(QStringList, unset);
    QFETCH(QStringList, set);
    QFETCH(QString, message);
    QProcessEnvironment env = TrackerProcess(MINDMETER_EXECUTABLE, m_dir->path()).environment();
    env.insert("XDG_RUNTIME_DIR", m_dir->path()); // no compositor listens here
    for (const QString& name : unset)
        env.remove(name);
    for (const QString& pair : set)
        env.insert(pair.section('=', 0, 0), pair.section('=', 1));
    const ProcessResult r = runProcess(MINDMETER_EXECUTABLE, {"track"}, env);
    QCOMPARE(r.exitCode, 1);
    const QByteArray& err = r.err;
    QVERIFY2(err.startsWith("mindmeter: ") && err.contains(message.toUtf8()), err.constData());
}

QTEST_GUILESS_MAIN(TrackTest)
#include "tst_track.moc"
