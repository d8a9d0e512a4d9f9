#include "SqliteDefaults.h"

#include <QDir>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QThread>

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// How values are tagged in the "type" column; SQLite's own types cannot tell a boolean
// from an integer.
enum StoredType { Integer = 0, Real = 1, Boolean = 2, Text = 3, Blob = 4 };

enum Statement { SelectValue, Upsert, Delete, SelectKeys, SelectRevision, DataVersion };

const char* const statementTexts[] = {
    "SELECT type, value FROM defaults WHERE key = ?1",
    "INSERT INTO defaults(key, type, revision, value) VALUES(?1, ?2, ?4, ?3) "
    "ON CONFLICT(key) DO UPDATE SET type = excluded.type, value = excluded.value, "
    "revision = excluded.revision",
    "DELETE FROM defaults WHERE key = ?1",
    "SELECT key FROM defaults ORDER BY key",
    "SELECT revision FROM defaults WHERE key = ?1",
    // Changes whenever another connection commits; our own commits leave it alone.
    "PRAGMA data_version",
};

// Bytes derived from a value, in a table of their own so that they never show as settings.
enum DerivedStatement { SelectDerived, UpsertDerived, DeleteDerived };

const char* const derivedStatementTexts[] = {
    "SELECT bytes FROM derived WHERE key = ?1 AND revision = ?2",
    ("INSERT INTO derived(key, revision, bytes) VALUES(?1, ?2, ?3) "
     "ON CONFLICT(key) DO UPDATE SET revision = excluded.revision, bytes = excluded.bytes"),
    "DELETE FROM derived WHERE key = ?1",
};

// Resets a statement on every exit path so its read lock is released promptly.
struct StatementScope {
    sqlite3_stmt* stmt;
    ~StatementScope() {
        sqlite3_reset(stmt);
        sqlite3_clear_bindings(stmt);
    }
};

// Private data is never written through a symbolic link (which may lead anywhere) or into
// what belongs to someone else.
bool isOwnPlainEntry(const QString& path, QString* error) {
    struct stat st {};
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
        return true; // nothing there: it is made anew
    QString why;
    if (S_ISLNK(st.st_mode))
        why = QStringLiteral("%1 is a symbolic link; refusing to keep private data through it");
    else if (st.st_uid != ::geteuid())
        why = QStringLiteral("%1 belongs to another user; refusing to use it");
    if (why.isEmpty())
        return true;
    if (error)
        *error = why.arg(path);
    return false;
}

bool ensurePrivateFolder(const QString& folder, QString* error) {
    if (!QDir().mkpath(folder)) {
        if (error)
            *error = QStringLiteral("cannot create folder %1").arg(folder);
        return false;
    }
    const QByteArray native = QFile::encodeName(folder);
    struct stat st {};
    if (::stat(native.constData(), &st) == 0 && (st.st_mode & 077) != 0 && st.st_uid == ::getuid())
        ::chmod(native.constData(), 0700);
    return isOwnPlainEntry(folder, error);
}

// SQLite creates files with the process umask; create the database first so that it, and
// the -wal and -shm files that copy its permissions, are private from the start. A file that
// exists is left as it is: one the user made read-only is still opened, for reading.
bool ensurePrivateFile(const QString& path, QString* error) {
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0 && errno == EEXIST)
        return isOwnPlainEntry(path, error);
    if (fd < 0) {
        if (error)
            *error = QStringLiteral("cannot open %1: %2")
                         .arg(path, QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    ::close(fd);
    return true;
}

// Opens and sets up a connection to the database at path, creating it when needed. Sets
// *damaged when SQLite finds the file is no database or a malformed one.
sqlite3* openConnection(const QString& path, int busyWaitMs, QString* error,
                        bool* damaged = nullptr) {
    const bool inMemory = path == QLatin1String(":memory:");
    if (!inMemory) {
        if (!ensurePrivateFolder(QFileInfo(path).absolutePath(), error) ||
            !ensurePrivateFile(path, error))
            return nullptr;
    }

    sqlite3* db = nullptr;
    // READWRITE falls back to reading only when the file is write-protected.
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    const int rc = sqlite3_open_v2(QFile::encodeName(path).constData(), &db, flags, nullptr);
    if (rc != SQLITE_OK) {
        if (error)
            *error =
                QStringLiteral("cannot open %1: %2")
                    .arg(path, QString::fromUtf8(db ? sqlite3_errmsg(db) : sqlite3_errstr(rc)));
        sqlite3_close_v2(db);
        return nullptr;
    }
    sqlite3_busy_timeout(db, busyWaitMs);

    // WAL lets the command line read while the app writes; NORMAL sync keeps every commit
    // atomic across crashes (only a power cut can undo the last few commits, never corrupt).
    // On a write-protected file the table is there already and nothing here writes.
    const char* setup = "PRAGMA journal_mode=WAL;"
                        "PRAGMA synchronous=NORMAL;"
                        "CREATE TABLE IF NOT EXISTS defaults("
                        " key TEXT PRIMARY KEY NOT NULL,"
                        " type INTEGER NOT NULL,"
                        // Before the value, so reading it never walks a large value's pages.
                        " revision INTEGER NOT NULL,"
                        " value);";
    char* message = nullptr;
    if (sqlite3_exec(db, setup, nullptr, nullptr, &message) != SQLITE_OK) {
        const int code = sqlite3_errcode(db) & 0xff;
        const bool broken = code == SQLITE_NOTADB || code == SQLITE_CORRUPT;
        if (damaged)
            *damaged = broken;
        if (error)
            *error = (broken ? QStringLiteral("cannot use %1: it is damaged (%2)")
                             : QStringLiteral("cannot use %1: %2"))
                         .arg(path, QString::fromUtf8(message));
        sqlite3_free(message);
        sqlite3_close_v2(db);
        return nullptr;
    }
    // Files made before this table existed gain it here; a write-protected one goes without
    // (everything derived is then derived again by each reader).
    sqlite3_exec(db,
                 "CREATE TABLE IF NOT EXISTS derived("
                 " key TEXT PRIMARY KEY NOT NULL,"
                 " revision INTEGER NOT NULL,"
                 " bytes BLOB NOT NULL);",
                 nullptr, nullptr, nullptr);
    return db;
}

bool isSmall(const QVariant& value) {
    constexpr qsizetype limit = 1024;
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString().size() <= limit / 2;
    case QMetaType::QByteArray:
        return value.toByteArray().size() <= limit;
    default:
        return true;
    }
}

// The device and inode of the file at path; {0, 0} when there is none.
std::pair<quint64, quint64> fileIdentity(const QString& path) {
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return {0, 0};
    return {quint64(st.st_dev), quint64(st.st_ino)};
}

} // namespace

SqliteDefaults::SqliteDefaults(sqlite3* db, QString path)
    : m_db(db)
    , m_path(std::move(path)) {
    if (m_path != QLatin1String(":memory:"))
        m_identity = fileIdentity(m_path);
}

SqliteDefaults::~SqliteDefaults() {
    closeConnection();
}

void SqliteDefaults::closeConnection() {
    for (sqlite3_stmt*& s : m_statements) {
        sqlite3_finalize(s);
        s = nullptr;
    }
    for (sqlite3_stmt*& s : m_derivedStatements) {
        sqlite3_finalize(s);
        s = nullptr;
    }
    sqlite3_close_v2(m_db);
    m_db = nullptr;
}

QString SqliteDefaults::defaultPath() {
    QString base = qEnvironmentVariable("XDG_DATA_HOME");
    if (base.isEmpty() || !QDir::isAbsolutePath(base))
        base = QDir::homePath() + QStringLiteral("/.local/share");
    return base + QStringLiteral("/mindmeter/mindmeter.sqlite3");
}

std::unique_ptr<SqliteDefaults> SqliteDefaults::open(const QString& path, QString* error,
                                                     bool* damaged) {
    if (damaged)
        *damaged = false;
    sqlite3* db = openConnection(path, defaultBusyWaitMs, error, damaged);
    if (!db)
        return nullptr;
    std::unique_ptr<SqliteDefaults> store(new SqliteDefaults(db, path));
    if (!store->prepare()) {
        if (error)
            *error = QStringLiteral("cannot use %1: %2").arg(path, store->m_lastError);
        return nullptr;
    }
    return store;
}

QString SqliteDefaults::setAside(const QString& path, const QDateTime& now, QString* error) {
    const QFileInfo info(path);
    const QString stem = info.dir().filePath(info.completeBaseName() + QStringLiteral(".damaged-") +
                                             now.toString(QStringLiteral("yyyyMMdd-HHmmss")));
    const QString suffix = info.suffix().isEmpty() ? QString() : QLatin1Char('.') + info.suffix();
    const auto fail = [error](const QString& why) {
        if (error)
            *error = why;
        return QString();
    };
    // rename() moves a link itself, never what it points to; RENAME_NOREPLACE never puts the
    // file over anything already there, so a name taken (a second in the same second) moves
    // on to the next.
    QString target;
    for (int n = 1;; ++n) {
        target = stem + (n == 1 ? QString() : QStringLiteral("-%1").arg(n)) + suffix;
        if (::renameat2(AT_FDCWD, QFile::encodeName(path).constData(), AT_FDCWD,
                        QFile::encodeName(target).constData(), RENAME_NOREPLACE) == 0)
            break;
        if (errno != EEXIST || n >= 100)
            return fail(QStringLiteral("cannot move %1 aside: %2")
                            .arg(path, QString::fromLocal8Bit(strerror(errno))));
    }
    // The write-ahead log holds the last commits and belongs with its file; left behind,
    // SQLite would play it into the new database.
    for (const char* companion : {"-wal", "-shm"}) {
        const QByteArray from = QFile::encodeName(path + QLatin1String(companion));
        const QByteArray to = QFile::encodeName(target + QLatin1String(companion));
        if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) !=
                0 &&
            errno != ENOENT)
            return fail(
                QStringLiteral("cannot move %1 aside: %2")
                    .arg(QString::fromLocal8Bit(from), QString::fromLocal8Bit(strerror(errno))));
    }
    // Private, whatever mode it had; opened without following a link.
    const int fd = ::open(QFile::encodeName(target).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0) {
        ::fchmod(fd, 0600);
        ::close(fd);
    }
    return target;
}

bool SqliteDefaults::ensureWritableConnection() {
    if (m_path == QLatin1String(":memory:"))
        return true;
    // A data folder deleted (or a file replaced) while the program runs leaves this
    // connection on an unlinked file, where every write would vanish: open the file at the
    // path again, making it anew if need be. After a failed write the connection is opened
    // again too, so one that found the file write-protected sees it writable once it is.
    const std::pair<quint64, quint64> identity = fileIdentity(m_path);
    if (identity == m_identity && identity.second != 0 && !m_reopenBeforeWrite)
        return true;
    const bool madeAgain = identity.second == 0 || identity != m_identity;
    QString error;
    sqlite3* db = openConnection(m_path, m_busyWaitMs, &error);
    if (!db) {
        m_lastError = error;
        m_reopenBeforeWrite = true;
        return false; // the old connection stays, for reading
    }
    closeConnection();
    forgetCache(); // the new connection counts its data version afresh
    m_db = db;
    if (!prepare()) {
        m_reopenBeforeWrite = true;
        return false;
    }
    m_identity = fileIdentity(m_path);
    m_reopenBeforeWrite = false;
    if (madeAgain) {
        QMetaObject::invokeMethod(
            this,
            [this] {
                if (m_watcher)
                    watchFiles();
                emit recreated();
            },
            Qt::QueuedConnection);
    }
    return true;
}

bool SqliteDefaults::prepare() {
    for (int i = 0; i < int(std::size(statementTexts)); ++i) {
        if (sqlite3_prepare_v3(m_db, statementTexts[i], -1, SQLITE_PREPARE_PERSISTENT,
                               &m_statements[i], nullptr) != SQLITE_OK) {
            m_lastError = QString::fromUtf8(sqlite3_errmsg(m_db));
            return false;
        }
    }
    // Without the derived table (a write-protected old file) these stay null: no derived
    // bytes are kept or found.
    for (int i = 0; i < int(std::size(derivedStatementTexts)); ++i)
        if (sqlite3_prepare_v3(m_db, derivedStatementTexts[i], -1, SQLITE_PREPARE_PERSISTENT,
                               &m_derivedStatements[i], nullptr) != SQLITE_OK)
            m_derivedStatements[i] = nullptr;
    return true;
}

sqlite3_stmt* SqliteDefaults::statement(int index) const {
    return m_statements[index];
}

void SqliteDefaults::setBusyWaitLimit(int ms) {
    QMutexLocker lock(&m_mutex);
    m_busyWaitMs = ms;
    if (m_db)
        sqlite3_busy_timeout(m_db, ms);
}

QString SqliteDefaults::lastError() const {
    QMutexLocker lock(&m_mutex);
    return m_lastError;
}

QVariant SqliteDefaults::value(const QString& key, bool* ok) const {
    QMutexLocker lock(&m_mutex);
    if (!m_db) {
        if (ok)
            *ok = false;
        return {};
    }
    validateCache();
    Cached& cached = m_cache[key];
    if (!cached.value) {
        bool read = false;
        QVariant fresh = readValue(key, &read);
        if (!read) {
            if (ok)
                *ok = false;
            return {};
        }
        // Settings are kept; large values (a day's ledger, say) are read when wanted, so the
        // memory kept stays small.
        if (!isSmall(fresh)) {
            if (ok)
                *ok = true;
            return fresh;
        }
        cached.value = std::move(fresh);
    }
    if (ok)
        *ok = true;
    return *cached.value;
}

QVariant SqliteDefaults::readValue(const QString& key, bool* ok) const {
    sqlite3_stmt* s = statement(SelectValue);
    StatementScope scope{s};
    const QByteArray k = key.toUtf8();
    sqlite3_bind_text(s, 1, k.constData(), int(k.size()), SQLITE_STATIC);
    const int rc = sqlite3_step(s);
    if (ok)
        *ok = rc == SQLITE_ROW || rc == SQLITE_DONE;
    if (rc != SQLITE_ROW) {
        if (rc != SQLITE_DONE)
            m_lastError = QString::fromUtf8(sqlite3_errmsg(m_db));
        return {};
    }
    switch (sqlite3_column_int(s, 0)) {
    case Integer:
        return QVariant::fromValue<qint64>(sqlite3_column_int64(s, 1));
    case Real:
        return QVariant::fromValue(sqlite3_column_double(s, 1));
    case Boolean:
        return QVariant::fromValue(sqlite3_column_int64(s, 1) != 0);
    case Text: {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(s, 1));
        return QString::fromUtf8(text, sqlite3_column_bytes(s, 1));
    }
    case Blob: {
        const auto* blob = static_cast<const char*>(sqlite3_column_blob(s, 1));
        return QByteArray(blob ? blob : "", sqlite3_column_bytes(s, 1));
    }
    default:
        return {}; // a row this program did not write: treated as absent
    }
}

bool SqliteDefaults::setValue(const QString& key, const QVariant& value) {
    if (!isStorable(value))
        return false;
    {
        QMutexLocker lock(&m_mutex);
        if (!ensureWritableConnection())
            return false;
        sqlite3_stmt* s = statement(Upsert);
        StatementScope scope{s};
        const QByteArray k = key.toUtf8();
        sqlite3_bind_text(s, 1, k.constData(), int(k.size()), SQLITE_STATIC);
        QByteArray bytes;
        switch (value.typeId()) {
        case QMetaType::LongLong:
            sqlite3_bind_int(s, 2, Integer);
            sqlite3_bind_int64(s, 3, value.toLongLong());
            break;
        case QMetaType::Double:
            sqlite3_bind_int(s, 2, Real);
            sqlite3_bind_double(s, 3, value.toDouble());
            break;
        case QMetaType::Bool:
            sqlite3_bind_int(s, 2, Boolean);
            sqlite3_bind_int64(s, 3, value.toBool() ? 1 : 0);
            break;
        case QMetaType::QString:
            bytes = value.toString().toUtf8();
            sqlite3_bind_int(s, 2, Text);
            sqlite3_bind_text(s, 3, bytes.constData(), int(bytes.size()), SQLITE_STATIC);
            break;
        default:
            bytes = value.toByteArray();
            sqlite3_bind_int(s, 2, Blob);
            sqlite3_bind_blob(s, 3, bytes.constData(), int(bytes.size()), SQLITE_STATIC);
            break;
        }
        // A random, never-zero revision: unique enough to tell any two writes apart, with no
        // shared counter for two processes to contend on.
        const quint64 revision = QRandomGenerator::global()->generate64() | 1u;
        sqlite3_bind_int64(s, 4, qint64(revision >> 1));
        m_cache.remove(key); // read again, as stored
        ++m_changeStamp;
        if (sqlite3_step(s) != SQLITE_DONE)
            return writeFailed();
    }
    emit valueChanged(key);
    return true;
}

bool SqliteDefaults::writeFailed() {
    // Keeps SQLite's reason, and opens the file again before the next write: it may have
    // been replaced, or become writable.
    m_lastError = QString::fromUtf8(sqlite3_errmsg(m_db));
    m_reopenBeforeWrite = true;
    return false;
}

bool SqliteDefaults::remove(const QString& key) {
    {
        QMutexLocker lock(&m_mutex);
        if (!ensureWritableConnection())
            return false;
        sqlite3_stmt* s = statement(Delete);
        StatementScope scope{s};
        const QByteArray k = key.toUtf8();
        sqlite3_bind_text(s, 1, k.constData(), int(k.size()), SQLITE_STATIC);
        m_cache.remove(key);
        ++m_changeStamp;
        if (sqlite3_step(s) != SQLITE_DONE)
            return writeFailed();
        if (sqlite3_stmt* derived = m_derivedStatements[DeleteDerived]) {
            StatementScope derivedScope{derived};
            sqlite3_bind_text(derived, 1, k.constData(), int(k.size()), SQLITE_STATIC);
            sqlite3_step(derived); // what is left could never match a revision again
        }
    }
    emit valueChanged(key);
    return true;
}

std::optional<QByteArray> SqliteDefaults::derivedData(const QString& key, quint64 revision) const {
    QMutexLocker lock(&m_mutex);
    sqlite3_stmt* s = m_derivedStatements[SelectDerived];
    if (!m_db || !s || revision == 0)
        return std::nullopt;
    StatementScope scope{s};
    const QByteArray k = key.toUtf8();
    sqlite3_bind_text(s, 1, k.constData(), int(k.size()), SQLITE_STATIC);
    sqlite3_bind_int64(s, 2, qint64(revision));
    if (sqlite3_step(s) != SQLITE_ROW)
        return std::nullopt;
    const auto* blob = static_cast<const char*>(sqlite3_column_blob(s, 0));
    return QByteArray(blob ? blob : "", sqlite3_column_bytes(s, 0));
}

void SqliteDefaults::keepDerivedData(const QList<Item>& items) const {
    if (items.isEmpty())
        return;
    QMutexLocker lock(&m_mutex);
    sqlite3_stmt* s = m_derivedStatements[UpsertDerived];
    // Never into a file that is no longer at the path (the next write of a value opens the
    // new one), and never made to wait long: another process's write only means the bytes are
    // derived again next time.
    if (!m_db || !s || m_reopenBeforeWrite ||
        (m_path != QLatin1String(":memory:") && fileIdentity(m_path) != m_identity))
        return;
    sqlite3_busy_timeout(m_db, std::min(m_busyWaitMs, interactiveBusyWaitMs));
    if (sqlite3_exec(m_db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK) {
        bool ok = true;
        for (const Item& item : items) {
            StatementScope scope{s};
            const QByteArray k = item.key.toUtf8();
            sqlite3_bind_text(s, 1, k.constData(), int(k.size()), SQLITE_STATIC);
            sqlite3_bind_int64(s, 2, qint64(item.revision));
            sqlite3_bind_blob(s, 3, item.bytes.constData(), int(item.bytes.size()), SQLITE_STATIC);
            ok = ok && sqlite3_step(s) == SQLITE_DONE;
        }
        sqlite3_exec(m_db, ok ? "COMMIT" : "ROLLBACK", nullptr, nullptr, nullptr);
    }
    sqlite3_busy_timeout(m_db, m_busyWaitMs);
}

QStringList SqliteDefaults::keys() const {
    QMutexLocker lock(&m_mutex);
    if (!m_db)
        return {};
    sqlite3_stmt* s = statement(SelectKeys);
    StatementScope scope{s};
    QStringList result;
    while (sqlite3_step(s) == SQLITE_ROW) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
        result.append(QString::fromUtf8(text, sqlite3_column_bytes(s, 0)));
    }
    return result;
}

quint64 SqliteDefaults::revision(const QString& key) const {
    QMutexLocker lock(&m_mutex);
    if (!m_db)
        return 0;
    validateCache();
    Cached& cached = m_cache[key];
    if (cached.revision)
        return *cached.revision;
    sqlite3_stmt* s = statement(SelectRevision);
    StatementScope scope{s};
    const QByteArray k = key.toUtf8();
    sqlite3_bind_text(s, 1, k.constData(), int(k.size()), SQLITE_STATIC);
    const int rc = sqlite3_step(s);
    const quint64 revision = rc == SQLITE_ROW ? quint64(sqlite3_column_int64(s, 0)) | 1u : 0;
    if (rc == SQLITE_ROW || rc == SQLITE_DONE)
        cached.revision = revision;
    return revision;
}

qint64 SqliteDefaults::dataVersion() const {
    QMutexLocker lock(&m_mutex);
    return dataVersionLocked();
}

qint64 SqliteDefaults::dataVersionLocked() const {
    if (!m_db)
        return -1;
    sqlite3_stmt* s = statement(DataVersion);
    StatementScope scope{s};
    return sqlite3_step(s) == SQLITE_ROW ? sqlite3_column_int64(s, 0) : -1;
}

void SqliteDefaults::forgetCache() const {
    m_cache.clear();
    m_cacheDataVersion = -1;
    ++m_changeStamp;
}

void SqliteDefaults::validateCache() const {
    // While the file is watched, the watcher's announcement of another process's commit
    // empties the kept values (checkExternalChange), so reads on this object's thread, in its
    // event loop, trust them and touch no file. Elsewhere every read looks at the version.
    if (trustsKeptValues())
        return;
    const qint64 version = dataVersionLocked();
    if (version < 0 || version != m_cacheDataVersion) {
        m_cache.clear();
        m_cacheDataVersion = version;
        ++m_changeStamp;
    }
}

bool SqliteDefaults::trustsKeptValues() const {
    QThread* current = QThread::currentThread();
    return current == thread() && current->loopLevel() > 0 && m_watchingBoth;
}

quint64 SqliteDefaults::changeStamp() const {
    if (trustsKeptValues())
        return m_changeStamp;
    QMutexLocker lock(&m_mutex);
    validateCache();
    return m_changeStamp;
}

void SqliteDefaults::watchForExternalChanges() {
    if (m_watcher || m_path == QLatin1String(":memory:"))
        return;
    m_seenDataVersion = dataVersion();
    m_watcher = new QFileSystemWatcher(this);
    watchFiles();
    connect(m_watcher, &QFileSystemWatcher::fileChanged, this, [this](const QString& file) {
        if (!m_watcher->files().contains(file) && QFileInfo::exists(file))
            m_watcher->addPath(file); // replaced rather than written: watch the new file
        m_watchingBoth = m_watcher->files().size() == 2;
        checkExternalChange();
    });
}

void SqliteDefaults::watchFiles() {
    // Commits land in the write-ahead log; a checkpoint rewrites the main file.
    m_watcher->addPaths({m_path, m_path + QStringLiteral("-wal")});
    m_watchingBoth = m_watcher->files().size() == 2;
}

void SqliteDefaults::checkExternalChange() {
    qint64 version = -1;
    {
        QMutexLocker lock(&m_mutex);
        version = dataVersionLocked();
        // Whoever hears of the change reads what changed, not what was kept.
        if (version < 0 || version != m_cacheDataVersion) {
            m_cache.clear();
            m_cacheDataVersion = version;
            ++m_changeStamp;
        }
    }
    if (version == m_seenDataVersion)
        return;
    m_seenDataVersion = version;
    emit valueChanged(QString());
}
