// The real tracker's store failing under it: the disk full, the database file read-only, the
// data folder deleted. In each the tracker must keep today in memory, say what failed, write
// the whole day again once writing works, and leave a store that opens and checks whole;
// the command line must say what failed too. A data file SQLite finds damaged is kept aside by
// the tray app, which counts on in a new one. A stop signal while starting ends either
// program cleanly.
//
// A full disk is a small tmpfs filled to its last block. Mounting one needs a mount namespace
// of the test's own: as root the test makes one; otherwise it tries a user namespace. Where
// neither can be had, that case says so and the file-size limit (RLIMIT_FSIZE) case, which
// needs no privilege, remains.

#include "Sessions.h"
#include "SqliteIntegrity.h"
#include "TrackerProcess.h"
#include "X11Windows.h"

#include "model/SessionCodec.h"
#include "store/DayKeys.h"
#include "store/SqliteDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <sqlite3.h>

#include <csignal>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <linux/capability.h>

namespace {

// Set in main(), before any thread exists: empty when this process has a mount namespace of
// its own, else why not.
QString mountNamespaceRefusal;

QString privateMountNamespace() {
    const uid_t uid = ::geteuid();
    const gid_t gid = ::getegid();
    if (uid == 0) {
        if (::unshare(CLONE_NEWNS) != 0)
            return QStringLiteral("unshare(CLONE_NEWNS): %1").arg(strerror(errno));
    } else {
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return QStringLiteral("not root, and no user namespace: %1").arg(strerror(errno));
        const auto write = [](const char* path, const QByteArray& text) {
            QFile f(QString::fromLatin1(path));
            return f.open(QIODevice::WriteOnly) && f.write(text) == text.size();
        };
        // The same user inside as outside, so files keep their owner.
        if (!write("/proc/self/setgroups", "deny") ||
            !write("/proc/self/uid_map",
                   QByteArray::number(uid) + ' ' + QByteArray::number(uid) + " 1") ||
            !write("/proc/self/gid_map",
                   QByteArray::number(gid) + ' ' + QByteArray::number(gid) + " 1"))
            return QStringLiteral("cannot map the user into its namespace");
    }
    // Mounts made here stay here and vanish with the test.
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return QStringLiteral("cannot make mounts private: %1").arg(strerror(errno));
    return {};
}

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

// A second process that holds the database's write lock until released; with readersToo,
// SQLite's exclusive locking mode keeps other processes from even reading it.
class DatabaseHolder {
public:
    explicit DatabaseHolder(const QString& path, bool readersToo = false) {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
            return;
        const QByteArray native = QFile::encodeName(path);
        m_pid = ::fork();
        if (m_pid == 0) {
            ::close(fds[0]); // so that the test closing its end is seen as the release
            sqlite3* db = nullptr;
            char byte = 0;
            if (sqlite3_open(native.constData(), &db) == SQLITE_OK &&
                sqlite3_exec(db,
                             readersToo ? "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; "
                                          "SELECT count(*) FROM defaults;"
                                        : "BEGIN EXCLUSIVE",
                             nullptr, nullptr, nullptr) == SQLITE_OK &&
                ::write(fds[1], "h", 1) == 1) {
                [[maybe_unused]] const ssize_t n = ::read(fds[1], &byte, 1); // until released
            }
            ::_exit(0);
        }
        ::close(fds[1]);
        m_fd = fds[0];
        char byte = 0;
        m_holding = m_pid > 0 && ::read(m_fd, &byte, 1) == 1;
    }
    ~DatabaseHolder() { release(); }
    bool held() const { return m_holding; }
    void release() {
        if (m_pid <= 0)
            return;
        ::close(m_fd); // the holder's read ends: it lets go and exits
        ::waitpid(m_pid, nullptr, 0);
        m_pid = 0;
    }

private:
    int m_fd = -1;
    pid_t m_pid = 0;
    bool m_holding = false;
};

} // namespace

class StoreFaultsTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void diskFull_data();
    void diskFull();
    void readOnlyStore();
    void dataFolderDeletedWhileTracking();
    void databaseHeldByAnotherProcess();
    void dayWrittenWhileTracking();
    void damagedFileIsSetAside();
    void stopSignalDuringStartUp_data();
    void stopSignalDuringStartUp();

private:
    // Today's stored sessions, read without creating anything.
    QList<ActivitySession> stored() const;
    QByteArray runCli(const QStringList& args, int* status, bool withoutOverrides = false);
    void startTracking();
    // SIGTERM: the tracker ends in order; with `check`, the store it leaves checks whole.
    void stop(bool check = false);
    void stopAndCheck() { stop(true); }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<TrackerProcess> m_tracker;
    X11Windows m_windows;
    QString m_mount;
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
    if (!m_mount.isEmpty())
        ::umount2(QFile::encodeName(m_mount).constData(), MNT_DETACH);
    m_mount.clear();
    m_dir.reset();
}

QList<ActivitySession> StoreFaultsTest::stored() const {
    const QString key =
        DayKeys::sessions(QDateTime::currentDateTimeUtc().date().toString(Qt::ISODate));
    const auto bytes = readValue(m_tracker->databasePath(), key);
    return bytes ? SessionCodec::decodeDay(*bytes).value_or(QList<ActivitySession>{})
                 : QList<ActivitySession>{};
}

QByteArray StoreFaultsTest::runCli(const QStringList& args, int* status, bool withoutOverrides) {
    QProcess p;
    p.setProcessEnvironment(m_tracker->environment());
    if (withoutOverrides)
        p.setChildProcessModifier(dropFileOverrides);
    p.start(MINDMETER_EXECUTABLE, args);
    p.waitForFinished(30000);
    *status = p.exitCode();
    return p.readAllStandardOutput() + p.readAllStandardError();
}

void StoreFaultsTest::startTracking() {
    m_tracker->start(10);
    QVERIFY2(m_tracker->waitUntilTracking(), m_tracker->said().constData());
}

void StoreFaultsTest::stop(bool check) {
    ::kill(pid_t(m_tracker->pid()), SIGTERM);
    QVERIFY(m_tracker->process().waitForFinished(30000));
    QCOMPARE(m_tracker->process().exitCode(), 0);
    if (check)
        QCOMPARE(integrity(m_tracker->databasePath()), QString("ok"));
}

// --- Disk full ---------------------------------------------------------------------------

void StoreFaultsTest::diskFull_data() {
    QTest::addColumn<bool>("tmpfs");
    if (mountNamespaceRefusal.isEmpty())
        QTest::newRow("a tmpfs filled to its last block") << true;
    else
        qInfo("A full tmpfs is not tried: %s", qPrintable(mountNamespaceRefusal));
    QTest::newRow("a file-size limit (RLIMIT_FSIZE)") << false;
}

void StoreFaultsTest::diskFull() {
    QFETCH(bool, tmpfs);
    const QString data = m_dir->filePath("data");
    QVERIFY(QDir().mkpath(data));
    if (tmpfs) {
        QVERIFY2(::mount("tmpfs", QFile::encodeName(data).constData(), "tmpfs", 0,
                         "size=16m,mode=0700") == 0,
                 strerror(errno));
        m_mount = data;
    } else {
        // The limit is set on the running tracker below; the signal it raises is ignored,
        // so writes past it fail as on a full disk.
        m_tracker->setChildSetup([] { ::signal(SIGXFSZ, SIG_IGN); });
    }
    startTracking();
    QTRY_VERIFY_WITH_TIMEOUT(stored().size() >= 5, 20000);
    const QList<ActivitySession> before = stored();

    // The disk fills up.
    const QDateTime fullFrom = QDateTime::currentDateTimeUtc();
    QFile filler(data + "/filler");
    if (tmpfs) {
        QVERIFY(filler.open(QIODevice::WriteOnly));
        const QByteArray block(64 * 1024, 'x');
        while (filler.write(block) > 0 && filler.flush()) {
        }
        filler.close();
    } else {
        const rlimit limit{4096, RLIM_INFINITY};
        QVERIFY(::prlimit(pid_t(m_tracker->pid()), RLIMIT_FSIZE, &limit, nullptr) == 0);
    }
    QVERIFY2(m_tracker->waitForMessage("mindmeter: cannot store today's sessions in "),
             m_tracker->said().constData());
    const QByteArray said = m_tracker->said();
    QVERIFY2(said.contains(tmpfs ? "database or disk is full" : "disk I/O error"),
             said.constData());
    QVERIFY2(said.contains("keeping them in memory"), said.constData());

    // Meanwhile the command line reads what is stored and says why it cannot write.
    int status = 0;
    const QByteArray written =
        runCli({"defaults", "write", "mindmeter.test", "-int", "1"}, &status);
    if (tmpfs) {
        QCOMPARE(status, 1);
        QVERIFY2(written.contains("cannot write mindmeter.test: database or disk is full"),
                 written.constData());
    }
    runCli({"status", "--json"}, &status);
    QCOMPARE(status, 0);
    QTest::qWait(1000); // a second of sessions kept in memory only
    const QDateTime fullUntil = QDateTime::currentDateTimeUtc();

    // Space again: the next session writes the whole day.
    if (tmpfs) {
        QVERIFY(filler.remove());
    } else {
        const rlimit limit{RLIM_INFINITY, RLIM_INFINITY};
        QVERIFY(::prlimit(pid_t(m_tracker->pid()), RLIMIT_FSIZE, &limit, nullptr) == 0);
    }
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
    {
        auto db = SqliteDefaults::open(m_tracker->databasePath());
        QVERIFY(db);
        QVERIFY(db->setInteger("mindmeter.dailyTokenBaseline", 30000));
    }
    const QByteArray path = QFile::encodeName(m_tracker->databasePath());
    QCOMPARE(::chmod(path.constData(), 0400), 0);

    // Read-only from the start: the tracker runs, says why it cannot store, keeps the day.
    m_tracker->setChildSetup(dropFileOverrides);
    startTracking();
    QVERIFY2(m_tracker->waitForMessage("attempt to write a readonly database"),
             m_tracker->said().constData());
    QVERIFY(stored().isEmpty());
    int status = 0;
    const QByteArray read =
        runCli({"defaults", "read", "mindmeter.dailyTokenBaseline"}, &status, true);
    QCOMPARE(status, 0);
    QCOMPARE(read, QByteArray("30000\n"));
    const QByteArray written =
        runCli({"defaults", "write", "mindmeter.test", "-int", "1"}, &status, true);
    QCOMPARE(status, 1);
    QVERIFY2(written.contains("cannot write mindmeter.test: attempt to write a readonly database"),
             written.constData());
    QTest::qWait(500);

    // Writable again: the whole day so far is stored with the next session.
    QCOMPARE(::chmod(path.constData(), 0600), 0);
    QVERIFY2(m_tracker->waitForMessage("mindmeter: today's sessions are stored again"),
             m_tracker->said().constData());
    QTRY_VERIFY_WITH_TIMEOUT(stored().size() >= 8, 20000); // half a second's worth at least

    // Made read-only while it runs: the file it has open stays writable, nothing fails.
    QCOMPARE(::chmod(path.constData(), 0400), 0);
    const qsizetype count = stored().size();
    QTRY_VERIFY_WITH_TIMEOUT(stored().size() >= count + 5, 20000);
    QCOMPARE(m_tracker->said().count("cannot store"), 1);

    stop();
    QCOMPARE(::chmod(path.constData(), 0600), 0);
    QCOMPARE(integrity(m_tracker->databasePath()), QString("ok"));
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
    int status = 0;
    const QByteArray second = runCli({"track"}, &status);
    QCOMPARE(status, 1);
    QVERIFY2(second.contains("tracking is already running (process " +
                             QByteArray::number(m_tracker->pid()) + ")"),
             second.constData());

    stopAndCheck();
    QVERIFY(stored().size() >= after.size());
}

// --- Another process holds the database ------------------------------------------------

void StoreFaultsTest::databaseHeldByAnotherProcess() {
    startTracking();
    QTRY_VERIFY_WITH_TIMEOUT(stored().size() >= 3, 20000);
    DatabaseHolder holder(m_tracker->databasePath());
    QVERIFY(holder.held());

    // The tracker waits for the lock only briefly, keeps the day in memory and says why;
    // the command line still reads.
    QVERIFY2(m_tracker->waitForMessage("database is locked; keeping them in memory"),
             m_tracker->said().constData());
    int status = 0;
    runCli({"status", "--json"}, &status);
    QCOMPARE(status, 0);
    const qsizetype whileHeld = stored().size();

    holder.release();
    QVERIFY2(m_tracker->waitForMessage("mindmeter: today's sessions are stored again"),
             m_tracker->said().constData());
    QTRY_VERIFY_WITH_TIMEOUT(stored().size() > whileHeld, 20000);
}

// --- Today written from outside ------------------------------------------------------------

void StoreFaultsTest::dayWrittenWhileTracking() {
    startTracking();
    QTRY_VERIFY_WITH_TIMEOUT(stored().size() >= 3, 20000);

    // `defaults write` of today's day while the tracker runs: the written day is kept, and
    // the tracker's sessions from then on are added to it.
    const QDateTime morning = QDateTime::currentDateTimeUtc().date().startOfDay(Qt::UTC);
    const QList<ActivitySession> written = {
        makeSession(TokenType::output, 10, morning),
        makeSession(TokenType::output, 10, morning.addSecs(60))};
    QFile file(m_dir->filePath("day.json"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(SessionCodec::encodeDay(written));
    file.close();
    int status = 0;
    const QString key =
        DayKeys::sessions(QDateTime::currentDateTimeUtc().date().toString(Qt::ISODate));
    const QByteArray said =
        runCli({"defaults", "write", key, "-data-file", file.fileName()}, &status);
    QVERIFY2(status == 0, said.constData());
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const QList<ActivitySession> now = stored();
            return now.size() > written.size() && now.mid(0, written.size()) == written;
        }(),
        20000);

    stop();
    QCOMPARE(stored().mid(0, written.size()), written);
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
    // With the database held, the start waits in opening it: SIGTERM lands there.
    DatabaseHolder holder(m_tracker->databasePath(), true);
    QVERIFY(holder.held());
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
    holder.release();
    // It finishes starting, then stops in order.
    QVERIFY(m_tracker->process().waitForFinished(30000));
    QCOMPARE(m_tracker->process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_tracker->process().exitCode(), 0);
    QCOMPARE(integrity(m_tracker->databasePath()), QString("ok"));
}

int main(int argc, char* argv[]) {
    mountNamespaceRefusal = privateMountNamespace();
    QCoreApplication app(argc, argv);
    StoreFaultsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_storefaults.moc"
