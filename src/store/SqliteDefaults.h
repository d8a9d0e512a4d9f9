#pragma once

#include "DerivedValues.h"

#include "platform/Defaults.h"

#include <QDateTime>
#include <QHash>
#include <QMutex>

#include <atomic>
#include <memory>
#include <optional>
#include <utility>

class QFileSystemWatcher;
struct sqlite3;
struct sqlite3_stmt;

// The settings database as one SQLite file in WAL mode, one row per key. Several processes
// (the tray app and the command line) may read and write it at once; SQLite's locking keeps
// every write whole, and a busy database is waited for rather than failed.
//
// One connection, used from any thread under a mutex. Before each write it checks that the
// file at its path is still the one it has open: if the data folder was deleted or the file
// replaced, it opens (and if need be creates) the file at the path again, and announces it
// with recreated(). After a failed write (disk full, file write-protected) the next write
// opens the file again as well.
//
// Values and revisions read are kept in memory. Own writes update what is kept; another
// process's commits are found by one look at the connection's data version, at most once per
// turn of the event loop of this object's thread (on every read elsewhere), so a read never
// gives a value older than one taken at the start of the current turn.
class SqliteDefaults final : public Defaults, public DerivedValues {
    Q_OBJECT
public:
    ~SqliteDefaults() override;

    // Opens (creating when needed) the database at path; ":memory:" gives a private
    // in-memory store. A new file is made readable by its owner only, in a folder only its
    // owner may enter; a write-protected file is opened for reading, and writes to it fail. A
    // file or folder that is a symbolic link, or belongs to another user, is refused.
    // On failure returns null and says why in *error; *damaged tells whether SQLite found the
    // file damaged (no database, or a malformed one: cut short, say).
    static std::unique_ptr<SqliteDefaults> open(const QString& path, QString* error = nullptr,
                                                bool* damaged = nullptr);

    // Moves a damaged database file, with its write-ahead log, aside to
    // NAME.damaged-YYYYMMDD-HHMMSS.EXT in its folder (made private, never over an existing
    // file, never through a link), so a new store can be made at the path while the old
    // bytes stay as they were. Returns the new name, or empty with *error.
    static QString setAside(const QString& path, const QDateTime& now, QString* error = nullptr);

    // $XDG_DATA_HOME/mindmeter/mindmeter.sqlite3, or ~/.local/share/mindmeter/... when unset.
    static QString defaultPath();

    QVariant value(const QString& key, bool* ok = nullptr) const override;
    bool setValue(const QString& key, const QVariant& value) override;
    bool remove(const QString& key) override;
    QStringList keys() const override;
    quint64 revision(const QString& key) const override;
    quint64 changeStamp() const override;
    // Kept in a table of their own in the same file.
    std::optional<QByteArray> derivedData(const QString& key, quint64 revision) const override;
    void keepDerivedData(const QList<Item>& items) const override;

    QString path() const override { return m_path; }

    // How long an operation waits for another process's lock before it fails (and a write
    // is kept for the next one). Long enough by default for the command line; the tray and
    // the tracker, whose main thread must not stall, wait briefly.
    static constexpr int defaultBusyWaitMs = 5000;
    static constexpr int interactiveBusyWaitMs = 200;
    void setBusyWaitLimit(int ms);

    // Watches the file for commits made by other processes (the command line, say) and
    // announces them as valueChanged with an empty key. Event-driven: nothing is polled.
    void watchForExternalChanges();
    // The last SQLite error message, for the command line to report.
    QString lastError() const override;

signals:
    // The file had gone from its path (its folder deleted, say) and was made again; it holds
    // only what was written since. Emitted on this object's thread.
    void recreated();

private:
    SqliteDefaults(sqlite3* db, QString path);
    // Called under the mutex before every write; false, with m_lastError set, when no
    // connection to the file at the path can be had.
    bool ensureWritableConnection();
    void closeConnection();
    void checkExternalChange();
    void watchFiles();
    bool writeFailed(); // always false; called with the mutex held
    qint64 dataVersion() const;
    qint64 dataVersionLocked() const;
    QVariant readValue(const QString& key, bool* ok) const;
    // Empties the kept values when another process has committed since they were read.
    // Called with the mutex held.
    void validateCache() const;
    // On this object's thread, in its event loop, with both files watched: every change is
    // announced (checkExternalChange), so kept values need no look at the file.
    bool trustsKeptValues() const;
    void forgetCache() const;
    bool prepare();
    sqlite3_stmt* statement(int index) const;

    mutable QMutex m_mutex;
    sqlite3* m_db = nullptr;
    QString m_path;
    mutable QString m_lastError;
    sqlite3_stmt* m_statements[6] = {};
    sqlite3_stmt* m_derivedStatements[3] = {};
    QFileSystemWatcher* m_watcher = nullptr;
    // Both the file and its write-ahead log are watched: only then are kept values trusted.
    bool m_watchingBoth = false;
    qint64 m_seenDataVersion = -1;
    // The device and inode of the file this connection has open.
    std::pair<quint64, quint64> m_identity{0, 0};
    bool m_reopenBeforeWrite = false;
    int m_busyWaitMs = defaultBusyWaitMs;

    struct Cached {
        std::optional<QVariant> value;
        std::optional<quint64> revision;
    };
    mutable QHash<QString, Cached> m_cache;
    // The data version the kept values were read at; -1 when none is known.
    mutable qint64 m_cacheDataVersion = -1;
    // Moves on whenever kept values are dropped; read without the mutex where trusted.
    mutable std::atomic<quint64> m_changeStamp{1};
};
