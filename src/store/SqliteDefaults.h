#pragma once

#include "platform/Defaults.h"

#include <QMutex>

#include <memory>

class QFileSystemWatcher;
struct sqlite3;
struct sqlite3_stmt;

// The settings database as one SQLite file in WAL mode, one row per key. Several processes
// (the tray app and the command line) may read and write it at once; SQLite's locking keeps
// every write whole, and a busy database is waited for rather than failed.
//
// One connection, used from any thread under a mutex.
class SqliteDefaults final : public Defaults {
    Q_OBJECT
public:
    ~SqliteDefaults() override;

    // Opens (creating when needed) the database at path; ":memory:" gives a private
    // in-memory store. A new file is made readable by its owner only, in a folder only its
    // owner may enter. On failure returns null and says why in *error.
    static std::unique_ptr<SqliteDefaults> open(const QString& path, QString* error = nullptr);

    // $XDG_DATA_HOME/mindmeter/mindmeter.sqlite3, or ~/.local/share/mindmeter/... when unset.
    static QString defaultPath();

    QVariant value(const QString& key, bool* ok = nullptr) const override;
    bool setValue(const QString& key, const QVariant& value) override;
    bool remove(const QString& key) override;
    QStringList keys() const override;
    quint64 revision(const QString& key) const override;

    QString path() const { return m_path; }

    // Watches the file for commits made by other processes (the command line, say) and
    // announces them as valueChanged with an empty key. Event-driven: nothing is polled.
    void watchForExternalChanges();
    // The last SQLite error message, for the command line to report.
    QString lastError() const;

private:
    SqliteDefaults(sqlite3* db, QString path);
    void checkExternalChange();
    qint64 dataVersion() const;
    bool prepare();
    sqlite3_stmt* statement(int index) const;

    mutable QMutex m_mutex;
    sqlite3* m_db = nullptr;
    QString m_path;
    mutable QString m_lastError;
    sqlite3_stmt* m_statements[6] = {};
    QFileSystemWatcher* m_watcher = nullptr;
    qint64 m_seenDataVersion = -1;
};
