#include "FakeClock.h"
#include "Sessions.h"

#include "sensing/SpotlightMonitor.h"
#include "store/SqliteDefaults.h"

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QSignalSpy>
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
    QStringList foldersChangedWithin(int) const override { return {}; }
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
    QList<int> asked() const {
        QMutexLocker lock(&m_mutex);
        return m_asked;
    }

private:
    mutable QMutex m_mutex;
    QStringList m_paths;
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
    void hungGitIsKilled();

private:
    // One timer firing with `multiplier`, then everything it posted.
    void scan(double multiplier = 1.0);
    std::unique_ptr<SpotlightMonitor> makeMonitor(FileChangeIndex& index);
    QList<ActivitySession> sessionsOf(const QString& bundleID) const;

    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<SqliteDefaults> m_db;
    std::unique_ptr<FakeClock> m_clock;
    std::unique_ptr<DayStore> m_store;
    std::unique_ptr<SpotlightMonitor> m_monitor;
    double m_multiplier = 1.0;
};

void SpotlightMonitorTest::init() {
    m_home = std::make_unique<QTemporaryDir>();
    QVERIFY(m_home->isValid());
    m_db = SqliteDefaults::open(m_home->filePath(QStringLiteral("data.sqlite3")));
    QVERIFY(m_db);
    m_clock = std::make_unique<FakeClock>(local(2026, 5, 30, 10));
    m_store = std::make_unique<DayStore>(*m_db, *m_clock);
}

void SpotlightMonitorTest::cleanup() {
    m_monitor.reset();
    m_store.reset();
}

std::unique_ptr<SpotlightMonitor> SpotlightMonitorTest::makeMonitor(FileChangeIndex& index) {
    SpotlightMonitor::Options options;
    options.gitExecutable = QStringLiteral("/nonexistent/git");
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
    m_monitor = makeMonitor(index);
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
    m_monitor = makeMonitor(index);
    scan();
    QCOMPARE(sessionsOf("spotlight.source").size(), 1);
    QCOMPARE(sessionsOf("spotlight.source").first().appName, "💻 Code — 2 saves");
    QCOMPARE(sessionsOf("spotlight.docs").first().appName, "📝 Docs — 2 saves");
    QCOMPARE(m_store->sessions().size(), 2);
}

void SpotlightMonitorTest::savesCountOnceWhileRemembered() {
    FakeFileChangeIndex index;
    index.setPaths({m_home->filePath("a.py")});
    m_monitor = makeMonitor(index);
    scan();
    scan(); // still within the look-back: the same save
    QCOMPARE(sessionsOf("spotlight.source").size(), 1);

    // Thirty paths bridge one scan to the next; from a larger batch the rest drop out and
    // count again when the index lists them again.
    // A fresh monitor, so that no earlier path competes for the thirty places.
    const QStringList batch = numbered(m_home->filePath("many"), "ts", 100);
    index.setPaths(batch);
    m_monitor = makeMonitor(index);
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

void SpotlightMonitorTest::scansWaitForAChange() {
    // After a scan that found nothing, the worker is asked again only once a change is counted.
    FakeFileChangeIndex index;
    index.countChanges();
    m_monitor = makeMonitor(index);
    scan();
    scan();
    QCOMPARE(index.asked(), (QList<int>{600, 45}));
    index.setPaths({m_home->filePath("notes.md")});
    scan();
    scan(); // the same save, still listed: asked again, counted once
    QCOMPARE(index.asked(), (QList<int>{600, 45, 45, 45}));
    QCOMPARE(sessionsOf("spotlight.docs").size(), 1);
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

QTEST_GUILESS_MAIN(SpotlightMonitorTest)
#include "tst_spotlightmonitor.moc"
