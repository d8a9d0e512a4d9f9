#include "FakeClock.h"
#include "Sessions.h"

#include "platform/linux/InotifyFileChangeIndex.h"
#include "sensing/SpotlightMonitor.h"
#include "store/SqliteDefaults.h"

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>

namespace {

// A file index that answers what the test says, and notes what it was asked.
class FakeFileChangeIndex final : public FileChangeIndex {
public:
    QStringList modifiedWithin(int seconds) const override {
        QMutexLocker lock(&m_mutex);
        m_asked.append(seconds);
        return m_paths;
    }
    QStringList foldersChangedWithin(int) const override {
        QMutexLocker lock(&m_mutex);
        return m_folders;
    }
    void setPaths(const QStringList& paths) {
        QMutexLocker lock(&m_mutex);
        m_paths = paths;
        ++m_changes;
    }
    std::optional<quint64> changeCount() const override {
        QMutexLocker lock(&m_mutex);
        return m_counting ? std::optional<quint64>(m_changes) : std::nullopt;
    }
    // From now on the changes are counted, as the real index counts them.
    void countChanges() {
        QMutexLocker lock(&m_mutex);
        m_counting = true;
    }
    void setFolders(const QStringList& folders) {
        QMutexLocker lock(&m_mutex);
        m_folders = folders;
    }
    QList<int> asked() const {
        QMutexLocker lock(&m_mutex);
        return m_asked;
    }

private:
    mutable QMutex m_mutex;
    QStringList m_paths;
    QStringList m_folders;
    mutable QList<int> m_asked;
    quint64 m_changes = 0;
    bool m_counting = false;
};

QStringList numbered(const QString& folder, const QString& ext, int count) {
    QStringList paths;
    for (int i = 0; i < count; ++i)
        paths.append(QStringLiteral("%1/file%2.%3").arg(folder).arg(i).arg(ext));
    return paths;
}

void writeLines(const QString& path, int lines) {
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    for (int i = 0; i < lines; ++i)
        f.write(QByteArray::number(i) + "\n");
}

void writeScript(const QString& path, const QByteArray& body) {
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("#!/bin/sh\n" + body);
    f.close();
    QVERIFY(f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

} // namespace

class SpotlightMonitorTest : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void sessionSizes_data();
    void sessionSizes();
    void skipRules();
    void savesCountOnceWhileRemembered();
    void scansWaitForAChange();
    void multiplierIsReadWhenTheTimerFires();

    void commitsAreCreditedByChangedLines();
    void realFileEventsAndRealGit();
    void hungGitIsKilled();
    void garbageFromGitEarnsNothingUnreasonable();

private:
    // One timer firing with `multiplier`, then everything it posted.
    void scan(double multiplier = 1.0);
    std::unique_ptr<SpotlightMonitor> makeMonitor(FileChangeIndex& index, const QString& git);
    QList<ActivitySession> sessionsOf(const QString& bundleID) const;
    QString git(const QString& repo, const QStringList& args);
    void makeRepository(const QString& repo);
    void commitFile(const QString& repo, const QString& file, int lines);

    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<SqliteDefaults> m_db;
    std::unique_ptr<FakeClock> m_clock;
    std::unique_ptr<DayStore> m_store;
    std::unique_ptr<SpotlightMonitor> m_monitor;
    double m_multiplier = 1.0;
    QString m_gitPath;
};

void SpotlightMonitorTest::init() {
    m_home = std::make_unique<QTemporaryDir>();
    QVERIFY(m_home->isValid());
    m_db = SqliteDefaults::open(m_home->filePath(QStringLiteral("data.sqlite3")));
    QVERIFY(m_db);
    m_clock = std::make_unique<FakeClock>(local(2026, 5, 30, 10));
    m_store = std::make_unique<DayStore>(*m_db, *m_clock);
    m_gitPath = QStandardPaths::findExecutable(QStringLiteral("git"));
}

void SpotlightMonitorTest::cleanup() {
    m_monitor.reset();
    m_store.reset();
}

std::unique_ptr<SpotlightMonitor> SpotlightMonitorTest::makeMonitor(FileChangeIndex& index,
                                                                    const QString& gitPath) {
    SpotlightMonitor::Options options;
    options.gitExecutable = gitPath;
    options.scanIntervalMs = 60 * 60 * 1000; // scans are triggered by the test
    options.gitTimeoutMs = 5000;
    auto monitor = std::make_unique<SpotlightMonitor>(
        *m_store, index, [this] { return m_multiplier; }, *m_clock, options);
    monitor->start();
    monitor->waitUntilIdle();
    return monitor;
}

void SpotlightMonitorTest::scan(double multiplier) {
    m_multiplier = multiplier;
    QVERIFY(QMetaObject::invokeMethod(m_monitor.get(), "timerFired"));
    m_monitor->waitUntilIdle();
    settle();
}

QList<ActivitySession> SpotlightMonitorTest::sessionsOf(const QString& bundleID) const {
    QList<ActivitySession> found;
    for (const ActivitySession& s : m_store->sessions())
        if (s.appBundleID == bundleID)
            found.append(s);
    return found;
}

QString SpotlightMonitorTest::git(const QString& repo, const QStringList& args) {
    QProcess p;
    p.setWorkingDirectory(repo);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), m_home->path());
    env.insert(QStringLiteral("GIT_CONFIG_NOSYSTEM"), QStringLiteral("1"));
    p.setProcessEnvironment(env);
    p.start(m_gitPath, args);
    if (!p.waitForFinished(30000) || p.exitCode() != 0)
        qWarning("git %s failed: %s", qPrintable(args.join(u' ')),
                 p.readAllStandardError().constData());
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

void SpotlightMonitorTest::makeRepository(const QString& repo) {
    QVERIFY(QDir().mkpath(repo));
    git(repo, {"init", "-q", "-b", "main"});
    git(repo, {"config", "user.email", "dev@example.org"});
    git(repo, {"config", "user.name", "Dev"});
    commitFile(repo, QStringLiteral("README.md"), 3);
}

void SpotlightMonitorTest::commitFile(const QString& repo, const QString& file, int lines) {
    writeLines(repo + u'/' + file, lines);
    git(repo, {"add", "-A"});
    git(repo, {"commit", "-q", "-m", "change " + file});
}

// --- Saves ------------------------------------------------------------------------------

void SpotlightMonitorTest::sessionSizes_data() {
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("docs");
    QTest::addColumn<double>("multiplier");
    QTest::addColumn<qint64>("codeTokens");
    QTest::addColumn<qint64>("docsTokens");
    QTest::newRow("one source file, deep work") << 1 << 0 << 1.4 << 21ll << 0ll;
    QTest::newRow("two source files, fragmented") << 2 << 0 << 0.6 << 18ll << 0ll;
    QTest::newRow("three documents") << 0 << 3 << 1.0 << 0ll << 24ll;
    QTest::newRow("documents earn at least one token") << 0 << 1 << 0.1 << 0ll << 1ll;
    QTest::newRow("code has no minimum") << 1 << 0 << 0.01 << 0ll << 0ll;
    QTest::newRow("both kinds in one scan") << 4 << 2 << 1.1 << 66ll << 17ll;
}

void SpotlightMonitorTest::sessionSizes() {
    QFETCH(int, code);
    QFETCH(int, docs);
    QFETCH(double, multiplier);
    QFETCH(qint64, codeTokens);
    QFETCH(qint64, docsTokens);

    FakeFileChangeIndex index;
    index.setPaths(numbered(m_home->filePath("src"), "swift", code) +
                   numbered(m_home->filePath("notes"), "md", docs));
    m_monitor = makeMonitor(index, QStringLiteral("/nonexistent/git"));
    QSignalSpy batches(m_store.get(), &DayStore::todayChanged);
    scan(multiplier);

    QCOMPARE(batches.count(), 1); // both sessions of a scan are handed over together
    QCOMPARE(m_store->sessions().size(), int(code > 0) + int(docs > 0));
    for (const ActivitySession& s : m_store->sessions()) {
        const bool isCode = s.appBundleID == "spotlight.source";
        QCOMPARE(s.rawTokens, isCode ? codeTokens : docsTokens);
        QCOMPARE(s.tokenType, isCode ? TokenType::reasoning : TokenType::output);
        QCOMPARE(s.endTime, Timestamp::fromDateTime(m_clock->now()));
        QCOMPARE(s.duration(), 30.0);
    }
    QCOMPARE(index.asked(), (QList<int>{600, 45})); // warm-up, then the scan's look-back
}

void SpotlightMonitorTest::skipRules() {
    const QString h = m_home->path();
    FakeFileChangeIndex index;
    index.setPaths({
        h + "/app/node_modules/left-pad/index.js", // under node_modules
        h + "/app/.git/hooks/pre-commit.sh",       // inside a repository's own folder
        h + "/app/build/gen/out.c",                // build output
        h + "/app/target/debug/main.rs",
        h + "/app/Cargo.lock", // an ignored extension, though the name looks like code
        h + "/app/yarn.LOCK",  // extensions are compared lower-cased
        h + "/app/core.o",
        h + "/app/.env",          // a hidden file has no extension
        h + "/app/photo.png",     // neither source nor document
        h + "/app/Makefile",      // no extension
        h + "/app/file.DS_Store", // lower-cased it no longer matches the ignore list
        h + "/app/Main.PY",       // source, whatever the case
        h + "/app/settings.env",  // a document
        h + "/app/README.Md",     // a document
        h + "/app/builder/x.go",  // "builder" is not "build"
    });
    m_monitor = makeMonitor(index, QStringLiteral("/nonexistent/git"));
    scan();
    QCOMPARE(sessionsOf("spotlight.source").size(), 1);
    QCOMPARE(sessionsOf("spotlight.source").first().appName, "💻 Code — 2 saves");
    QCOMPARE(sessionsOf("spotlight.docs").first().appName, "📝 Docs — 2 saves");
    QCOMPARE(m_store->sessions().size(), 2);
}

void SpotlightMonitorTest::savesCountOnceWhileRemembered() {
    FakeFileChangeIndex index;
    index.setPaths({m_home->filePath("a.py")});
    m_monitor = makeMonitor(index, QStringLiteral("/nonexistent/git"));
    scan();
    scan(); // still within the look-back: the same save
    QCOMPARE(sessionsOf("spotlight.source").size(), 1);

    // Thirty paths bridge one scan to the next; from a larger batch the rest drop out and
    // count again when the index lists them again.
    // A fresh monitor, so that no earlier path competes for the thirty places.
    const QStringList batch = numbered(m_home->filePath("many"), "ts", 100);
    index.setPaths(batch);
    m_monitor = makeMonitor(index, QStringLiteral("/nonexistent/git"));
    scan();
    scan();
    scan();
    const QList<ActivitySession> saves = sessionsOf("spotlight.source");
    QCOMPARE(saves.size(), 4);
    QCOMPARE(saves.at(1).appName, "💻 Code — 100 saves");
    QCOMPARE(saves.at(2).appName, "💻 Code — 70 saves");
    QCOMPARE(saves.at(3).appName, "💻 Code — 70 saves");

    // An empty scan hands nothing to the store.
    index.setPaths({});
    QSignalSpy batches(m_store.get(), &DayStore::todayChanged);
    scan();
    QCOMPARE(batches.count(), 0);
}

void SpotlightMonitorTest::multiplierIsReadWhenTheTimerFires() {
    FakeFileChangeIndex index;
    QThread* readOn = nullptr;
    SpotlightMonitor::Options options;
    options.scanIntervalMs = 60 * 60 * 1000;
    options.gitExecutable = QStringLiteral("/nonexistent/git");
    double multiplier = 1.4;
    SpotlightMonitor monitor(
        *m_store, index,
        [&] {
            readOn = QThread::currentThread();
            return multiplier;
        },
        *m_clock, options);
    monitor.start();
    index.setPaths({m_home->filePath("x.c")});
    QVERIFY(QMetaObject::invokeMethod(&monitor, "timerFired"));
    multiplier = 0.6; // changed after the timer fired: the scan keeps the value it was given
    monitor.waitUntilIdle();
    settle();
    QCOMPARE(readOn, QThread::currentThread());
    QCOMPARE(sessionsOf("spotlight.source").first().rawTokens, qint64(21));
}

// --- Repositories ------------------------------------------------------------------------

void SpotlightMonitorTest::commitsAreCreditedByChangedLines() {
    if (m_gitPath.isEmpty())
        QFAIL("git is not installed (scripts/install-deps.sh installs it)");
    const QString repo = m_home->filePath("code/project");
    makeRepository(repo);
    FakeFileChangeIndex index;
    // Worked in recently, before the index started: a folder changed a moment ago.
    index.setFolders({m_home->filePath("elsewhere"), repo});
    m_monitor = makeMonitor(index, m_gitPath);

    scan();
    QVERIFY(sessionsOf("git.autodetect").isEmpty()); // HEAD has not moved

    commitFile(repo, "forty.txt", 40);
    scan();
    commitFile(repo, "hundred.txt", 100);
    scan();
    git(repo, {"reset", "-q", "--hard", "HEAD~1"}); // HEAD moves back
    scan();
    commitFile(repo, "big.txt", 1001);
    scan();
    scan(); // nothing new

    const QList<ActivitySession> commits = sessionsOf("git.autodetect");
    QCOMPARE(commits.size(), 4);
    QCOMPARE(commits.at(0).appName, "Git [project]: commit +40 lines");
    QCOMPARE(commits.at(0).rawTokens, qint64(10)); // 8 rounds up to the minimum
    QCOMPARE(commits.at(2).appName, "Git [project]: commit +100 lines"); // again after a reset
    QCOMPARE(commits.at(2).rawTokens, qint64(20));
    QCOMPARE(commits.at(3).rawTokens, qint64(200)); // 1001 / 5
    QCOMPARE(commits.at(3).duration(), 60.0);
}

void SpotlightMonitorTest::scansWaitForAChange() {
    // After a scan that found nothing, the worker is asked again only once a change is counted.
    FakeFileChangeIndex index;
    index.countChanges();
    m_monitor = makeMonitor(index, QStringLiteral("/nonexistent/git"));
    scan();
    scan();
    QCOMPARE(index.asked(), (QList<int>{600, 45}));
    index.setPaths({m_home->filePath("notes.md")});
    scan();
    scan(); // the same save, still listed: asked again, counted once
    QCOMPARE(index.asked(), (QList<int>{600, 45, 45, 45}));
    QCOMPARE(sessionsOf("spotlight.docs").size(), 1);
}

void SpotlightMonitorTest::realFileEventsAndRealGit() {
    if (m_gitPath.isEmpty())
        QFAIL("git is not installed (scripts/install-deps.sh installs it)");
    const QString repo = m_home->filePath("work/repo");
    makeRepository(repo);
    QVERIFY(QDir().mkpath(repo + "/node_modules/dep"));
    QVERIFY(QDir().mkpath(repo + "/src"));

    InotifyFileChangeIndex index(m_home->path(), SpotlightMonitor::skipParts(), *m_clock);
    QVERIFY(index.start());
    m_monitor = makeMonitor(index, m_gitPath);

    writeLines(repo + "/node_modules/dep/index.js", 5);
    writeLines(repo + "/Cargo.lock", 5);
    writeLines(repo + "/notes.md", 5);
    writeLines(repo + "/src/main.py", 5);
    QTRY_VERIFY(index.modifiedWithin(45).contains(repo + "/src/main.py"));
    scan();
    QCOMPARE(sessionsOf("spotlight.source").size(), 1);
    QCOMPARE(sessionsOf("spotlight.source").first().appName, "💻 Code — 1 save");
    QCOMPARE(sessionsOf("spotlight.docs").first().appName, "📝 Docs — 1 save");
    QCOMPARE(m_monitor->activeProject(), "repo");
    QVERIFY(sessionsOf("git.autodetect").isEmpty()); // first sight of the repository

    m_clock->advanceSeconds(60); // the saves above leave the look-back
    commitFile(repo, "src/feature.py", 100);
    QTRY_VERIFY(index.modifiedWithin(45).contains(repo + "/src/feature.py"));
    scan();
    QCOMPARE(sessionsOf("git.autodetect").size(), 1);
    // Everything written since the first commit went in: four files of 5 lines and 100.
    QCOMPARE(sessionsOf("git.autodetect").first().appName, "Git [repo]: commit +120 lines");
    QCOMPARE(sessionsOf("git.autodetect").first().rawTokens, qint64(24));
    QCOMPARE(sessionsOf("spotlight.source").size(), 2);
}

void SpotlightMonitorTest::hungGitIsKilled() {
    const QString pids = m_home->filePath("pids");
    const QString standIn = m_home->filePath("slow-git");
    writeScript(standIn, "echo $$ >> '" + pids.toUtf8() + "'\nexec sleep 60\n");

    FakeFileChangeIndex index;
    SpotlightMonitor::Options options;
    options.gitExecutable = standIn;
    options.scanIntervalMs = 60 * 60 * 1000;
    options.gitTimeoutMs = 200;
    m_monitor = std::make_unique<SpotlightMonitor>(
        *m_store, index, [] { return 1.0; }, *m_clock, options);
    index.setPaths({m_home->filePath("a/x.py"), m_home->filePath("b/y.py")});
    m_monitor->start(); // warm-up asks git about both folders
    scan();

    // The scan finished without a repository, and every git it started is gone.
    QCOMPARE(sessionsOf("spotlight.source").first().appName, "💻 Code — 2 saves");
    QVERIFY(m_monitor->activeProject().isEmpty());
    QFile file(pids);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> started = file.readAll().trimmed().split('\n');
    file.close();
    QCOMPARE(started.size(), 4); // two folders at warm-up, two in the scan
    for (const QByteArray& pid : started) {
        errno = 0;
        QCOMPARE(::kill(pid_t(pid.toInt()), 0), -1);
        QCOMPARE(errno, ESRCH);
    }

    // Destroyed while git hangs with a long time-out: git is killed, not waited for.
    QVERIFY(QFile::remove(pids));
    options.gitTimeoutMs = 10 * 60 * 1000;
    m_monitor = std::make_unique<SpotlightMonitor>(
        *m_store, index, [] { return 1.0; }, *m_clock, options);
    m_monitor->start();
    QTRY_VERIFY(QFileInfo(pids).size() > 0); // the warm-up's git is running
    QVERIFY(file.open(QIODevice::ReadOnly));
    const int hanging = file.readAll().trimmed().toInt();
    file.close();
    m_monitor.reset();
    errno = 0;
    QCOMPARE(::kill(pid_t(hanging), 0), -1);
    QCOMPARE(errno, ESRCH);
}

void SpotlightMonitorTest::garbageFromGitEarnsNothingUnreasonable() {
    // A stand-in that names a repository, moves HEAD on every call, and answers the diff
    // with counts that fit no integer or only just, then megabytes of noise.
    const QString root = m_home->filePath("fake-repo");
    const QString counter = m_home->filePath("counter");
    QVERIFY(QDir().mkpath(root));
    // Counts the calls of one kind in a file of that name.
    auto next = [&](const char* kind) {
        const QByteArray file = "'" + counter.toUtf8() + "." + kind + "'";
        return "n=$(cat " + file + " 2>/dev/null || echo 0); n=$((n+1)); echo $n > " + file + "; ";
    };
    writeScript(
        m_home->filePath("odd-git"),
        "case \"$*\" in\n"
        "  *--show-toplevel*) echo '" +
            root.toUtf8() +
            "' ;;\n"
            "  *'rev-parse HEAD'*) " +
            next("head") +
            "printf '%040d\\n' $n ;;\n"
            "  *diff*) " +
            next("diff") +
            "if [ $n -eq 1 ]; then\n"
            "      echo ' 2 files changed, 99999999999999999999999 insertions(+), 7 deletions(-)'\n"
            "    else\n"
            "      echo ' 2 files changed, 9223372036854775807 insertions(+), 9223372036854775807 "
            "deletions(-)'\n"
            "    fi\n"
            "    head -c 3000000 /dev/zero | tr '\\0' x ;;\n"
            "esac\n");
    writeScript(m_home->filePath("noise-git"), "head -c 3000000 /dev/urandom\n");

    FakeFileChangeIndex index;
    index.setPaths({root + "/main.c"});
    m_monitor = makeMonitor(index, m_home->filePath("odd-git"));
    scan(); // learns a HEAD at warm-up, sees another now
    scan();
    const QList<ActivitySession> commits = sessionsOf("git.autodetect");
    QCOMPARE(commits.size(), 2);
    QCOMPARE(commits.first().appName, "Git [fake-repo]: commit +7 lines");
    QCOMPARE(commits.first().rawTokens, qint64(10));
    // Counts that would overflow a sum are capped at 2^40 lines.
    QCOMPARE(commits.last().appName, "Git [fake-repo]: commit +1099511627776 lines");
    QCOMPARE(commits.last().rawTokens, (qint64(1) << 40) / 5);

    // Binary noise is no repository root and no HEAD.
    m_monitor.reset();
    index.setPaths({m_home->filePath("other/main.c")});
    m_monitor = makeMonitor(index, m_home->filePath("noise-git"));
    scan();
    scan();
    QCOMPARE(sessionsOf("git.autodetect").size(), 2);
    QVERIFY(m_monitor->activeProject().isEmpty());
}

QTEST_GUILESS_MAIN(SpotlightMonitorTest)
#include "tst_spotlightmonitor.moc"
