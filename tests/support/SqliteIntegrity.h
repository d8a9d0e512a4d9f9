#pragma once

#include <QFile>
#include <QString>

#include <sqlite3.h>

// SQLite's own check of a database file, read-only: "ok" when whole, else what is wrong.
inline QString integrity(const QString& path) {
    sqlite3* db = nullptr;
    sqlite3_open_v2(QFile::encodeName(path).constData(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* s = nullptr;
    sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &s, nullptr);
    const QString result =
        s && sqlite3_step(s) == SQLITE_ROW
            ? QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(s, 0)))
            : QString::fromUtf8(sqlite3_errmsg(db));
    sqlite3_finalize(s);
    sqlite3_close(db);
    return result;
}
