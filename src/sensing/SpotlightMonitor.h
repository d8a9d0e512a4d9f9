#pragma once

#include "GitCommand.h"

#include "platform/Clock.h"
#include "platform/FileChangeIndex.h"
#include "sensing/TickTimer.h"
#include "store/DayStore.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QThread>

#include <atomic>
#include <functional>

// The repository monitor. On Linux its file index is inotify (InotifyFileChangeIndex) and
// repositories are asked with git; the name is the product's own for this sensor.
//
// Credits work that shows on disk rather than in the front application: files saved in the
// home folder (source code and documents) and commits in git repositories.
//
// Every scan interval it asks the file index which files changed in the last 45 seconds,
// turns the new ones into a code-saves and a docs-saves session, finds the repositories of
// saved source files and follows their HEAD commit; a HEAD that moved becomes a commit
// session sized by the lines the move changed. The name of the repository touched last is
// published as the active project.
//
// Scanning, git and the sets below run on one serial worker thread
// ("com.mindmeter.spotlight"); the object itself, its timer and activeProject belong to the
// thread it was created on (the main thread).
class SpotlightMonitor : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString activeProject READ activeProject NOTIFY activeProjectChanged)

public:
    struct Options {
        QString gitExecutable = QStringLiteral("/usr/bin/git");
        int scanIntervalMs = 30 * 1000;
        // A git command still running after this long is killed.
        int gitTimeoutMs = 5 * 1000;
    };

    // `modeMultiplier` is read on this object's thread each time the scan timer fires.
    SpotlightMonitor(DayStore& store, FileChangeIndex& index,
                     std::function<double()> modeMultiplier, const Clock& clock, Options options,
                     QObject* parent = nullptr);
    SpotlightMonitor(DayStore& store, FileChangeIndex& index,
                     std::function<double()> modeMultiplier, const Clock& clock = Clock::system(),
                     QObject* parent = nullptr)
        : SpotlightMonitor(store, index, std::move(modeMultiplier), clock, Options{}, parent) {}
    // Stops the worker: a git command still running is killed rather than waited for.
    ~SpotlightMonitor() override;

    // Learns the current HEAD of recently used repositories on the worker, then scans every
    // interval; the first scan comes one interval after start().
    void start();
    void stop();

    QString activeProject() const { return m_activeProject; }

    // Blocks until the worker has done everything posted to it so far. Not on the worker.
    void waitUntilIdle();

    // Extensions, lower-case, of source files and of documents.
    static const QSet<QString>& sourceExts();
    static const QSet<QString>& docsExts();
    // Folder names under which nothing counts; a file index may leave them out altogether.
    static const QSet<QString>& skipParts();

signals:
    void activeProjectChanged();

private slots:
    void timerFired();

private:
    void post(std::function<void()> work);
    void warmUp();
    void scan(double multiplier);
    void checkCommit(const QString& root);
    QStringList repositoriesToCheck(const QSet<QString>& touched);
    void rememberRepository(const QString& root);
    void setActiveProject(const QString& name);

    DayStore& m_store;
    FileChangeIndex& m_index;
    std::function<double()> m_modeMultiplier;
    const Clock& m_clock;
    const Options m_options;

    TickTimer<SpotlightMonitor, &SpotlightMonitor::timerFired> m_timer{this,
                                                                       m_options.scanIntervalMs};
    QString m_activeProject;

    QThread m_worker;
    QObject m_workerContext;
    std::atomic<bool> m_cancelled{false};
    // Set by the worker: the index's change count when a scan found nothing to look at (-1:
    // not since the last change), and whether any repository is known. With both, the
    // next scan would find nothing either, and the worker is left asleep.
    std::atomic<qint64> m_emptyAtCount{-1};
    std::atomic<bool> m_knowsRepositories{false};
    GitCommand m_git;

    // Worker state: touched by the worker thread only.
    QSet<QString> m_knownRepos;
    QStringList m_repoRotation; // the known repositories in the order they were found
    qsizetype m_rotationCursor = 0;
    QHash<QString, QString> m_headHashes;
    QSet<QString> m_prevScannedPaths;
};
