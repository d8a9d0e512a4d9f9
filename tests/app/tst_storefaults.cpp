// The real tracker's store failing under it: the disk full, the database file read-only, the
// data folder deleted. In each the tracker must keep today in memory, say what failed, write
// the whole day again once writing works, and leave a store that opens and checks whole;
// the command line must say what failed too. A data file SQLite finds damaged is kept aside by
// the tray app, which counts on in a new one. A stop signal while starting ends either
// program cleanly. The tracking lock dies with its holder, whatever the holder's children do.
// A full disk is a file-size limit (RLIMIT_FSIZE), which needs no privilege,
// so the case runs the same everywhere.

#include "RunProcess.h"
#include "SqliteIntegrity.h"
#include "TrackerProcess.h"
#include "X11Windows.h"

#include "app/TrackingLock.h"

#include "model/SessionCodec.h"
#include "store/DayKeys.h"
#include "store/SqliteDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <sqlite3.h>

#include <csignal>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <linux/capability.h>

namespace {

// Reads one value with a read-only connection, so that reading never creates the store.
std::optional<QByteArray> readValue(const QString& path, const QString& key) {
    sqlite3* db = nullptr;
    std::optional<QByteArray> result;
    if (sqlite3_open_v2(QFile::encodeName(path).constData(), &db, SQLITE_OPEN_READONLY, nullptr) ==
        SQLITE_OK) {
        sqlite3_busy_timeout(db, 5000);
        sqlite3_stmt* s = nullptr;
        sqlite3_prepare_v2(db, "SELECT value FROM defaults WHERE key = ?1", -1, &s, nullptr);
        const QByteArray k = key.toUtf8();
        sqlite3_bind_text(s, 1, k.constData(), int(k.size()), SQLITE_TRANSIENT);
        if (s && sqlite3_step(s) == SQLITE_ROW)
            result = QByteArray(static_cast<const char*>(sqlite3_column_blob(s, 0)),
                                sqlite3_column_bytes(s, 0));
        sqlite3_finalize(s);
    }
    sqlite3_close(db);
    return result;
}

// Root passes every permission check; without these capabilities a read-only file is
// read-only for the child too. Dropped from the bounding set, they are gone after exec.
void dropFileOverrides() {
    if (::geteuid() == 0)
        for (int cap : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER})
            ::prctl(PR_CAPBSET_DROP, cap, 0, 0, 0);
}

} // namespace

class StoreFaultsTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void diskFull();
    void readOnlyStore();
    void dataFolderDeletedWhileTracking();
    void damagedFileIsSetAside();
    void stopSignalDuringStartUp_data();
    void stopSignalDuringStartUp();
    void lockOutlivesNoKilledHolder();

private:
    // Today's stored sessions, read without creating anything.
    QList<ActivitySession> stored() const;
    // The command line, without root's file overrides.
    ProcessResult runCli(const QStringList& args);
    void startTracking();
    // SIGTERM: the tracker ends in order, and the store it leaves checks whole.
    void stopAndCheck();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<TrackerProcess> m_tracker;
    X11Windows m_windows;
    int m_moves = 0;
};

void StoreFaultsTest::initTestCase() {
    const quint32 term = m_windows.openTerminal("xterm", "XTerm");
    QVERIFY(term);
    X11Windows::activate(term);
}

void StoreFaultsTest::init() {
    X11Windows::moveMouse(40 + (++m_moves % 20), 40); // the user is present
    m_dir = std::make_unique<QTemporaryDir>();
    m_tracker = std::make_unique<TrackerProcess>(MINDMETER_EXECUTABLE, m_dir->path());
}

void StoreFaultsTest::cleanup() {
    if (m_tracker && m_tracker->pid() > 0) {
        m_tracker->process().kill();
        m_tracker->process().waitForFinished();
    }
    m_tracker.reset();
    m_dir.reset();
}

QList<ActivitySession> StoreFaultsTest::stored() const {
    const QString key =
        DayKeys::sessions(QDateTime::currentDateTimeUtc().date().toString(Qt::ISODate));
    const auto bytes = readValue(m_tracker->databasePath(), key);
    return bytes ? SessionCodec::decodeDay(*bytes).value_or(QList<ActivitySession>{})
                 : QList<ActivitySession>{};
}

ProcessResult StoreFaultsTest::runCli(const QStringList& args) {
    return runProcess(MINDMETER_EXECUTABLE, args, m_tracker->environment(), {}, 30000,
                      dropFileOverrides);
}

void StoreFaultsTest::startTracking() {
    m_tracker->start(10);
    QVERIFY2(m_tracker->waitUntilTracking(), m_tracker->said().constData());
}

void StoreFaultsTest::stopAndCheck() {
    ::kill(pid_t(m_tracker->pid()), SIGTERM);
    QVERIFY(m_tracker->process().waitForFinished(30000));
    QCOMPARE(m_tracker->process().exitCode(), 0);
    QCOMPARE(integrity(m_tracker->databasePath()), QString("ok"));
}

// --- Disk full ---------------------------------------------------------------------------

void StoreFaultsTest::diskFull() {
    // The limit is set on the running tracker below; the signal it raises is ignored, so
    // writes past it fail as on a full disk.
    m_tracker->setChildSetup([] { ::signal(SIGXFSZ, SIG_IGN); });
    startTracking();
    QTRY_VERIFY_WITH_TIMEOUT(stored().size() >= 5, 20000);
    const QList<ActivitySession> before = stored();

    const QDateTime fullFrom = QDateTime::currentDateTimeUtc();
    const rlimit full{4096, RLIM_INFINITY};
    QVERIFY(::prlimit(pid_t(m_tracker->pid()), RLIMIT_FSIZE, &full, nullptr) == 0);
    QVERIFY2(m_tracker->waitForMessage("mindmeter: cannot store today's sessions in "),
             m_tracker->said().constData());
    QVERIFY2(m_tracker->said().contains("disk I/O error; keeping them in memory"),
             m_tracker->said().constData());
    // Meanwhile the command line reads what is stored.
    QCOMPARE(runCli({"status", "--json"}).exitCode, 0);
    QTest::qWait(1000); // a second of sessions kept in memory only
    const QDateTime fullUntil = QDateTime::currentDateTimeUtc();

    // Space again: the next session writes the whole day.
    const rlimit space{RLIM_INFINITY, RLIM_INFINITY};
    QVERIFY(::prlimit(pid_t(m_tracker->pid()), RLIMIT_FSIZE, &space, nullptr) == 0);
    QVERIFY2(m_tracker->waitForMessage("mindmeter: today's sessions are stored again"),
             m_tracker->said().constData());
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const QList<ActivitySession> now = stored();
            return std::any_of(now.begin(), now.end(), [&](const ActivitySession& s) {
                return s.endTime.toDateTime() > fullFrom && s.endTime.toDateTime() < fullUntil;
            });
        }(),
        20000);
    const QList<ActivitySession> after = stored();
    for (const ActivitySession& s : before)
        QVERIFY(after.contains(s));
    stopAndCheck();
}

// --- A read-only store -------------------------------------------------------------------

void StoreFaultsTest::readOnlyStore() {
    QVERIFY(SqliteDefaults::open(m_tracker->databasePath())
                ->setInteger("mindmeter.dailyTokenBaseline", 30000));
    const QByteArray path = QFile::encodeName(m_tracker->databasePath());
    QCOMPARE(::chmod(path.constData(), 0400), 0);

    // Read-only from the start: the tracker runs, says why it cannot store, keeps the day.
    m_tracker->setChildSetup(dropFileOverrides);
    startTracking();
    QVERIFY2(m_tracker->waitForMessage("attempt to write a readonly database"),
             m_tracker->said().constData());
    QVERIFY(stored().isEmpty());
    QCOMPARE(runCli({"defaults", "read", "mindmeter.dailyTokenBaseline"}).out,
             QByteArray("30000\n"));
    const ProcessResult written = runCli({"defaults", "write", "mindmeter.test", "-int", "1"});
    QCOMPARE(written.exitCode, 1);
    QVERIFY2(
        written.err.contains("cannot write mindmeter.test: attempt to write a readonly database"),
        written.err.constData());
    QTest::qWait(500);

    // Writable again: the whole day so far is stored with the next session.
    QCOMPARE(::chmod(path.constData(), 0600), 0);
    QVERIFY2(m_tracker->waitForMessage("mindmeter: today's sessions are stored again"),
             m_tracker->said().constData());
    QTRY_VERIFY_WITH_TIMEOUT(stored().size() >= 8, 20000); // half a second's worth at least

    stopAndCheck();
}

// --- The data folder deleted -------------------------------------------------------------

void StoreFaultsTest::dataFolderDeletedWhileTracking() {
    startTracking();
    QTRY_VERIFY_WITH_TIMEOUT(stored().size() >= 5, 20000);
    const QList<ActivitySession> before = stored();

    // Deleted while the tracker holds the database open: its writes would go to the
    // unlinked file and vanish. It notices, makes the folder and file again, and writes
    // the whole day into them.
    QVERIFY(QDir(m_tracker->dataFolder()).removeRecursively());
    QVERIFY2(m_tracker->waitForMessage("was gone; made it again with today's sessions"),
             m_tracker->said().constData());
    QTRY_VERIFY_WITH_TIMEOUT(stored().size() > before.size(), 20000);
    const QList<ActivitySession> after = stored();
    for (const ActivitySession& s : before)
        QVERIFY(after.contains(s));

    // The tracking lock was made again too: a second tracker is still refused.
    const ProcessResult second = runCli({"track"});
    QCOMPARE(second.exitCode, 1);
    QVERIFY2(second.err.contains("tracking is already running (process " +
                                 QByteArray::number(m_tracker->pid()) + ")"),
             second.err.constData());

    stopAndCheck();
    QVERIFY(stored().size() >= after.size());
}

// --- A damaged data file -------------------------------------------------------------------

void StoreFaultsTest::damagedFileIsSetAside() {
    // A real store, cut short: SQLite refuses to open it.
    const QString path = m_tracker->databasePath();
    QVERIFY(SqliteDefaults::open(path)->setInteger("mindmeter.dailyTokenBaseline", 30000));
    QVERIFY(::truncate(QFile::encodeName(path).constData(), 1500) == 0);
    QFile damaged(path);
    QVERIFY(damaged.open(QIODevice::ReadOnly));
    const QByteArray bytes = damaged.readAll();

    // The tray app keeps the file aside, untouched and private, and counts in a new one.
    m_tracker->start(10, TrackerProcess::Program::tray);
    QVERIFY2(m_tracker->waitForMessage("and today is counted in a new data file"),
             m_tracker->said().constData());
    const QByteArray said = m_tracker->said();
    const QString keptAs = QString::fromLocal8Bit(
        said.mid(said.indexOf("kept unchanged as ") + 18).split(',').first());
    QCOMPARE(QFileInfo(keptAs).path(), m_tracker->dataFolder());
    QVERIFY2(QFileInfo(keptAs).fileName().startsWith("mindmeter.damaged-"), qPrintable(keptAs));
    QCOMPARE(QFile::permissions(keptAs) & 0x777, QFile::ReadUser | QFile::WriteUser);
    QTRY_VERIFY_WITH_TIMEOUT(stored().size() >= 3, 20000);

    stopAndCheck();
    QFile kept(keptAs);
    QVERIFY(kept.open(QIODevice::ReadOnly));
    QCOMPARE(kept.readAll(), bytes);
}

// --- A stop signal while starting ---------------------------------------------------------

void StoreFaultsTest::stopSignalDuringStartUp_data() {
    QTest::addColumn<bool>("tray");
    QTest::newRow("mindmeter track") << false;
    QTest::newRow("the tray app") << true;
}

void StoreFaultsTest::stopSignalDuringStartUp() {
    QFETCH(bool, tray);
    QVERIFY(SqliteDefaults::open(m_tracker->databasePath())
                ->setBool("mindmeter.hasLaunchedBefore", true));
    // With the database held in SQLite's exclusive locking mode, which keeps other processes
    // from even reading it, the start waits in opening it: SIGTERM lands there.
    sqlite3* holder = nullptr;
    QCOMPARE(sqlite3_open(QFile::encodeName(m_tracker->databasePath()).constData(), &holder),
             SQLITE_OK);
    QCOMPARE(sqlite3_exec(holder,
                          "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; "
                          "SELECT count(*) FROM defaults;",
                          nullptr, nullptr, nullptr),
             SQLITE_OK);
    m_tracker->start(10, tray ? TrackerProcess::Program::tray : TrackerProcess::Program::track);
    const QString fds = QStringLiteral("/proc/%1/fd").arg(m_tracker->pid());
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            for (const QFileInfo& fd : QDir(fds).entryInfoList(QDir::System | QDir::Files))
                if (fd.symLinkTarget() == m_tracker->databasePath())
                    return true;
            return false;
        }(),
        20000);
    QVERIFY(!m_tracker->said().contains("mindmeter: tracking"));
    ::kill(pid_t(m_tracker->pid()), SIGTERM);
    sqlite3_close(holder);
    // It finishes starting, then stops in order.
    QVERIFY(m_tracker->process().waitForFinished(30000));
    QCOMPARE(m_tracker->process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_tracker->process().exitCode(), 0);
    QCOMPARE(integrity(m_tracker->databasePath()), QString("ok"));
}

// --- The tracking lock -------------------------------------------------------------------------

void StoreFaultsTest::lockOutlivesNoKilledHolder() {
    // A tracker killed while a child it forked has not yet run its own program: that child
    // has every file the tracker had open, and may linger. It must not keep the next one out.
    QTemporaryDir dir;
    int pipeFds[2];
    QVERIFY(::pipe(pipeFds) == 0);
    const pid_t holder = ::fork();
    QVERIFY(holder >= 0);
    if (holder == 0) {
        TrackingLock lock(dir.path());
        pid_t child = -1;
        if (lock.tryLock(nullptr) && (child = ::fork()) == 0)
            for (;;)
                ::pause();
        if (::write(pipeFds[1], &child, sizeof child) != sizeof child)
            ::_exit(1);
        for (;;)
            ::pause();
    }
    pid_t lingering = -1;
    QCOMPARE(::read(pipeFds[0], &lingering, sizeof lingering), ssize_t(sizeof lingering));
    ::close(pipeFds[0]);
    ::close(pipeFds[1]);
    QVERIFY(lingering > 0);
    const auto reap = [](pid_t pid) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    };

    TrackingLock next(dir.path());
    QString why;
    QVERIFY(!next.tryLock(&why));
    QCOMPARE(why, QStringLiteral("tracking is already running (process %1)").arg(holder));
    reap(holder);
    const bool taken = next.tryLock(&why);
    ::kill(lingering, SIGKILL); // not ours to reap: it went to the holder's parent's reaper
    QVERIFY2(taken, qPrintable(why));
}

QTEST_GUILESS_MAIN(StoreFaultsTest)
#include "tst_storefaults.moc"
