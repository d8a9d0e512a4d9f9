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
    bool stopRequested = false;
    std::function<void()> stop = [&stopRequested] { stopRequested = true; };
    UnixSignalWatcher signalWatcher({SIGINT, SIGTERM, SIGHUP});
    QObject::connect(&signalWatcher, &UnixSignalWatcher::received, [&stop] { stop(); });

    std::unique_ptr<SqliteDefaults> defaults = openStore();
    if (!defaults)
        return 1;

    defaults->setBusyWaitLimit(SqliteDefaults::interactiveBusyWaitMs);
    TrackingLock lock(QFileInfo(defaults->path()).absolutePath());
    QString why;
    if (!lock.tryLock(&why))
        return failure(why);

    DayStore store(*defaults, m_clock);
    Sensors sensors(store, *defaults, m_clock);
    QString error;
    if (!sensors.create({tickMs}, &error))
        return failure(QStringLiteral("cannot track: %1").arg(error));
    std::fprintf(m_err, "mindmeter: following the desktop through %s\n",
                 qUtf8Printable(sensors.backendDescription()));
    for (const QString& note : sensors.backendNotes())
        std::fprintf(m_err, "mindmeter: %s\n", qUtf8Printable(note));

    if (CategoryRules::read(*defaults).isCorrupt())
        std::fprintf(m_err, "mindmeter: %s\n", qUtf8Printable(unreadableRulesMessage()));

    Alerts alerts(store, sensors.context(), *defaults, m_clock);
    if (auto* gnome = qobject_cast<GnomeShellWorkspace*>(&sensors.workspace())) {
        const auto say = [this](bool answers) {
            std::fprintf(
                m_err, "mindmeter: %s\n",
                qUtf8Printable(answers ? QStringLiteral("following GNOME Shell through Mindmeter's "
                                                        "extension")
                                       : GnomeShellWorkspace::extensionMissingMessage()));
            std::fflush(m_err);
        };
        say(gnome->extensionAnswers());
        QObject::connect(gnome, &GnomeShellWorkspace::extensionAnswersChanged, say);
        announceMissingGnomeShellExtension(*gnome, alerts.sink());
    }

    // Faults of the store are said once, when they begin and when they end; the day is kept
    // in memory meanwhile and written whole once writing works.
    SqliteDefaults* db = defaults.get();
    QObject::connect(&store, &DayStore::writeFailed, [this, db] {
        std::fprintf(m_err,
                     "mindmeter: cannot store today's sessions in %s: %s; keeping them in memory "
                     "and writing them whole as soon as writing works again\n",
                     qUtf8Printable(db->path()), qUtf8Printable(db->lastError()));
        std::fflush(m_err);
    });
    QObject::connect(&store, &DayStore::writeRestored, [this, &store] {
        std::fprintf(m_err, "mindmeter: today's sessions are stored again (%lld sessions)\n",
                     static_cast<long long>(store.sessions().size()));
        std::fflush(m_err);
    });
    QObject::connect(db, &SqliteDefaults::recreated, [this, db, &lock, &sensors] {
        std::fprintf(m_err, "mindmeter: %s was gone; made it again with today's sessions\n",
                     qUtf8Printable(db->path()));
        // The tracking lock went with the folder: take it again, or stop if another tracker
        // started meanwhile, so no minute is counted twice.
        QString why;
        if (!lock.retake(&why)) {
            std::fprintf(m_err, "mindmeter: stopping: %s\n", qUtf8Printable(why));
            sensors.stop();
            QCoreApplication::exit(1);
        }
        std::fflush(m_err);
    });

    stop = [&sensors] {
        // Stop in the order of starting; what the monitor gathered is stored before the
        // loop ends.
        sensors.stop();
        QCoreApplication::quit();
    };

    std::fprintf(m_err, "mindmeter: tracking; stop with Ctrl-C\n");
    std::fflush(m_err);
    sensors.start();
    if (stopRequested)
        QMetaObject::invokeMethod(QCoreApplication::instance(), stop, Qt::QueuedConnection);
    const int status = QCoreApplication::exec();
    store.waitForHistory();
    return status;
}
