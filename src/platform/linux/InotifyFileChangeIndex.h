#pragma once

#include "platform/Clock.h"
#include "platform/FileChangeIndex.h"

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>
#include <QWaitCondition>

#include <atomic>
#include <list>

class QSocketNotifier;

// Files written under one folder (the home folder), learnt from inotify.
//
// Every folder of the tree is watched for files closed after writing and files moved in,
// except hidden folders, folders whose name is in the pruned set, folders on another file
// system (network and FUSE mounts can be slow or hang) and symbolic links. Folders that
// appear later are watched as they appear, and files already written in them recently are
// recorded then; folders that go away are forgotten.
//
// The index lives on one thread: start() and the reading of events run there (a
// QSocketNotifier on that thread's event loop). modifiedWithin() may be called from any
// thread. What it remembers is bounded in count and age, so a storm of writes cannot
// grow it. When the watch limit is reached it keeps the watches it has, logs one warning
// and carries on.
class InotifyFileChangeIndex final : public QObject, public FileChangeIndex {
    Q_OBJECT
public:
    struct Options {
        // Changes remembered at most; the oldest are forgotten first.
        int maxEntries = 10000;
        // How long a change is remembered, in seconds.
        int retentionSeconds = 900;
        // Watches taken at most. 0: half the kernel's per-user limit, which leaves the rest
        // to editors and build tools that also watch files.
        int maxWatches = 0;
        // How long foldersChangedWithin() waits for the first walk of the tree to end.
        int walkWaitMs = 20000;
    };

    InotifyFileChangeIndex(const QString& root, const QSet<QString>& prunedFolderNames,
                           const Clock& clock, Options options, QObject* parent = nullptr);
    InotifyFileChangeIndex(const QString& root, const QSet<QString>& prunedFolderNames,
                           const Clock& clock = Clock::system(), QObject* parent = nullptr)
        : InotifyFileChangeIndex(root, prunedFolderNames, clock, Options{}, parent) {}
    ~InotifyFileChangeIndex() override;

    // Walks the tree, adds the watches and starts reading events. Call once, on the thread
    // the index lives on. False when inotify cannot be used at all (the index then stays
    // empty).
    bool start();

    QStringList modifiedWithin(int seconds) const override;
    // From the modification times of the folders the first walk reached (not hidden or
    // pruned ones); waits for that walk to end, so ask from a worker thread.
    QStringList foldersChangedWithin(int seconds) const override;
    std::optional<quint64> changeCount() const override { return m_recorded.load(); }

    int watchCount() const { return m_watchCount.load(); }
    int entryCount() const;
    bool watchLimitReached() const { return m_limitReached.load(); }

private slots:
    void readEvents();

private:
    struct Change {
        QByteArray path;
        qint64 ms;
    };

    void addTree(const QByteArray& top, bool recordRecentFiles,
                 QList<Change>* changedFolders = nullptr);
    bool addWatch(const QByteArray& path);
    void forgetWatch(int wd);
    void forgetTree(const QByteArray& top);
    void reachLimit(const char* why);
    bool isPruned(const QByteArray& name) const;
    void record(const QByteArray& path, qint64 ms);
    void handleEvent(int wd, quint32 mask, const QByteArray& name);

    const QByteArray m_root;
    QSet<QByteArray> m_pruned;
    const Clock& m_clock;
    const Options m_options;
    int m_maxWatches = 0;

    int m_fd = -1;
    quint64 m_rootDevice = 0;
    QSocketNotifier* m_notifier = nullptr; // a child: moves with the index

    // Watches, touched only on the index's own thread.
    QHash<int, QByteArray> m_pathByWatch;
    QHash<QByteArray, int> m_watchByPath;
    std::atomic<int> m_watchCount{0};
    std::atomic<bool> m_limitReached{false};
    std::atomic<quint64> m_recorded{0};
    bool m_limitLogged = false;

    // Recent changes, oldest first, one per path; shared with the readers.
    mutable QMutex m_mutex;
    std::list<Change> m_changes;
    QHash<QByteArray, std::list<Change>::iterator> m_changeByPath;
    // Folders changed recently as the first walk found them, newest first.
    QList<Change> m_changedFolders;
    bool m_walked = false;
    mutable QWaitCondition m_walkDone;
};
