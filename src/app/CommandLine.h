#pragma once

#include <QString>
#include <QStringList>

#include <cstdio>
#include <functional>
#include <memory>

class Clock;
class DayStore;
class Defaults;
class UnixSignalWatcher;

// The verbs of `mindmeter VERB ...`: each does its work over the settings store and
// exits, with no tray and no display.
//
// Exit status: 0 on success, 1 when the work failed (store unreadable, key missing,
// write failed), 2 for a usage error (unknown verb, missing or bad argument); a usage
// error never writes anything.
class CommandLine {
public:
    // Opens the settings store once a verb's arguments are known to be good: null, with the
    // reason in *error, when it cannot be opened.
    using StoreOpener = std::function<std::unique_ptr<Defaults>(QString* error)>;

    CommandLine(const Clock& clock, StoreOpener openStore, FILE* out, FILE* err, FILE* in = stdin);

    // The user's own store: the SQLite file at its default path.
    static std::unique_ptr<Defaults> openUserStore(QString* error);

    int run(const QStringList& args);

    static QString usage();
    // What the command line says of a stored rules value that cannot be read.
    static QString unreadableRulesMessage();

private:
    int usageError(const QString& message);
    int failure(const QString& message);
    void print(const QString& text);
    void printBytes(const QByteArray& bytes);
    void say(const QString& line); // one line on standard error, at once

    // The prologue of every verb over the store: opens it, or says why it cannot, then
    // runs the verb on it.
    int withStore(const std::function<int(Defaults&)>& verb);
    // The same with today's record loaded, refused when it is damaged: damaged records are
    // reported, never shown as an empty day.
    int withToday(const std::function<int(Defaults&, DayStore&)>& verb);

    int defaults(const QStringList& args);
    int readDefaults(Defaults& store, const QString& key);
    int status(const QStringList& args);
    int printStatusJson(DayStore& day);
    int printStatusText(Defaults& store, DayStore& day);
    int history(const QStringList& args);
    int exportHistory(const QStringList& args); // ExportCommands.cpp
    int summary(const QStringList& args);       // ExportCommands.cpp
    int update(const QStringList& args);        // UpdateCommand.cpp
    int track(const QStringList& args);         // TrackCommand.cpp
    int trackWith(Defaults& store, int tickMs, UnixSignalWatcher& signalWatcher);
    int categories(const QStringList& args); // CategoriesCommand.cpp
    int listCategories(Defaults& store);     // CategoriesCommand.cpp

    const Clock& m_clock;
    StoreOpener m_openStore;
    FILE* m_out;
    FILE* m_err;
    FILE* m_in;
};
