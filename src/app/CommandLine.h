#pragma once

#include <QString>
#include <QStringList>

#include <cstdio>
#include <memory>

class Clock;
class DayStore;
class SqliteDefaults;

// The verbs of `mindmeter VERB ...`: each does its work over the settings store and
// exits, with no tray and no display.
//
// Exit status: 0 on success, 1 when the work failed (store unreadable, key missing,
// write failed), 2 for a usage error (unknown verb, missing or bad argument); a usage
// error never writes anything.
class CommandLine {
public:
    CommandLine(const Clock& clock, FILE* out, FILE* err, FILE* in = stdin);

    // True when args (without the program name) start with a verb this class handles.
    static bool handles(const QStringList& args);

    int run(const QStringList& args);

    static QString usage();
    // What the command line says of a stored rules value that cannot be read.
    static QString unreadableRulesMessage();

private:
    int usageError(const QString& message);
    int failure(const QString& message);
    void print(const QString& text);
    void printBytes(const QByteArray& bytes);
    // The user's settings store, or null after saying why it cannot be opened.
    std::unique_ptr<SqliteDefaults> openStore();
    // Why today's stored record cannot be shown (empty when it can): damaged records are
    // reported, never shown as an empty day.
    static QString damage(const DayStore& day, const SqliteDefaults& store);

    int defaults(const QStringList& args);
    int status(const QStringList& args);
    int history(const QStringList& args);
    int exportHistory(const QStringList& args); // ExportCommands.cpp
    int summary(const QStringList& args);       // ExportCommands.cpp
    int update(const QStringList& args);        // UpdateCommand.cpp
    int track(const QStringList& args);         // TrackCommand.cpp
    int categories(const QStringList& args);    // CategoriesCommand.cpp
    int listCategories();                       // CategoriesCommand.cpp

    const Clock& m_clock;
    FILE* m_out;
    FILE* m_err;
    FILE* m_in;
};
