// `mindmeter track`: the sensing loop in the foreground, without a tray or windows.

#include "Alerts.h"
#include "CommandLine.h"
#include "GnomeShellBackend.h"
#include "Sensors.h"
#include "TrackingLock.h"
#include "UnixSignalWatcher.h"

#include "model/CategoryRules.h"
#include "platform/Clock.h"
#include "platform/linux/GnomeShellWorkspace.h"
#include "store/DayStore.h"
#include "store/SqliteDefaults.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <csignal>
#include <functional>

namespace {

void say(FILE* err, const QString& line) {
    std::fprintf(err, "mindmeter: %s\n", qUtf8Printable(line));
    std::fflush(err);
}

// Whether GNOME Shell's extension answers, said now and whenever it changes, and shown once
// as a notification while it does not.
void reportGnomeShell(GnomeShellWorkspace& gnome, Alerts& alerts, FILE* err) {
    const auto report = [err](bool answers) {
        say(err, answers ? QStringLiteral("following GNOME Shell through Mindmeter's extension")
                         : GnomeShellWorkspace::extensionMissingMessage());
    };
    report(gnome.extensionAnswers());
    QObject::connect(&gnome, &GnomeShellWorkspace::extensionAnswersChanged, report);
    announceMissingGnomeShellExtension(gnome, alerts.sink());
}

// Faults of the store are said once, when they begin and when they end; the day is kept in
// memory meanwhile and written whole once writing works.
void reportStoreFaults(DayStore& store, const Defaults& defaults, FILE* err) {
    QObject::connect(&store, &DayStore::writeFailed, [err, &defaults] {
        say(err, QStringLiteral("cannot store today's sessions in %1: %2; keeping them in memory "
                                "and writing them whole as soon as writing works again")
                     .arg(defaults.path(), defaults.lastError()));
    });
    QObject::connect(&store, &DayStore::writeRestored, [err, &store] {
        say(err, QStringLiteral("today's sessions are stored again (%1 sessions)")
                     .arg(store.sessions().size()));
    });
}

// The data folder deleted under a running tracker took the tracking lock with it: take it
// again, or stop if another tracker started meanwhile, so no minute is counted twice.
void retakeLockWhenRecreated(SqliteDefaults& db, TrackingLock& lock, Sensors& sensors, FILE* err) {
    QObject::connect(&db, &SqliteDefaults::recreated, [err, &db, &lock, &sensors] {
        say(err, QStringLiteral("%1 was gone; made it again with today's sessions").arg(db.path()));
        QString why;
        if (!lock.retake(&why)) {
            say(err, QStringLiteral("stopping: %1").arg(why));
            sensors.stop();
            QCoreApplication::exit(1);
        }
    });
}

} // namespace

int CommandLine::track(const QStringList& args) {
    int tickMs = 10000;
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--tick-ms")) {
            bool ok = false;
            tickMs = i + 1 < args.size() ? args[++i].toInt(&ok) : 0;
            if (!ok || tickMs < 10 || tickMs > 10000)
                return usageError(QStringLiteral("--tick-ms takes a number from 10 to 10000"));
        } else {
            return usageError(QStringLiteral("track does not take '%1'").arg(args[i]));
        }
    }
    // Caught from the start: a signal that arrives while the tracker starts stops it once
    // it has started, in order, rather than killing it half-way.
    UnixSignalWatcher signalWatcher({SIGINT, SIGTERM, SIGHUP});
    return withStore(
        [&](Defaults& defaults) { return trackWith(defaults, tickMs, signalWatcher); });
}

int CommandLine::trackWith(Defaults& defaults, int tickMs, UnixSignalWatcher& signalWatcher) {
    bool stopRequested = false;
    std::function<void()> stop = [&stopRequested] { stopRequested = true; };
    QObject::connect(&signalWatcher, &UnixSignalWatcher::received, [&stop] { stop(); });

    auto* db = qobject_cast<SqliteDefaults*>(&defaults);
    if (db) {
        db->setBusyWaitLimit(SqliteDefaults::interactiveBusyWaitMs);
        // Rules and days written by other processes are followed as they are committed, and
        // an idle tick reads its settings from memory.
        db->watchForExternalChanges();
    }
    TrackingLock lock(QFileInfo(defaults.path()).absolutePath());
    QString why;
    if (!lock.tryLock(&why))
        return failure(why);

    DayStore store(defaults, m_clock);
    Sensors sensors(store, defaults, m_clock);
    QString error;
    if (!sensors.create({tickMs}, &error))
        return failure(QStringLiteral("cannot track: %1").arg(error));
    say(QStringLiteral("following the desktop through %1").arg(sensors.backendDescription()));
    for (const QString& note : sensors.backendNotes())
        say(note);
    if (CategoryRules::read(defaults).isCorrupt())
        say(unreadableRulesMessage());

    Alerts alerts(store, sensors.context(), defaults, m_clock);
    if (auto* gnome = qobject_cast<GnomeShellWorkspace*>(&sensors.workspace()))
        reportGnomeShell(*gnome, alerts, m_err);
    reportStoreFaults(store, defaults, m_err);
    if (db)
        retakeLockWhenRecreated(*db, lock, sensors, m_err);

    stop = [&sensors] {
        // Stop in the order of starting; what the monitor gathered is stored before the
        // loop ends.
        sensors.stop();
        QCoreApplication::quit();
    };

    say(QStringLiteral("tracking; stop with Ctrl-C"));
    sensors.start();
    if (stopRequested)
        QMetaObject::invokeMethod(QCoreApplication::instance(), stop, Qt::QueuedConnection);
    const int status = QCoreApplication::exec();
    store.waitForHistory();
    return status;
}
