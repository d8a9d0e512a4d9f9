#pragma once

#include <QString>

// One tracking process per user — the tray app or `mindmeter track` — so no minute is
// counted twice. The lock is a POSIX record lock on a file beside the database: the kernel
// releases it when the process ends, however it ends, and a child the process forks never
// holds it, so a child that outlives a killed tracker cannot keep the next one out.
class TrackingLock {
public:
    explicit TrackingLock(const QString& dataFolder);
    ~TrackingLock();
    TrackingLock(const TrackingLock&) = delete;
    TrackingLock& operator=(const TrackingLock&) = delete;

    // False, with the reason in *why ("tracking is already running (process 1234)"), when
    // another process holds it or it cannot be taken.
    bool tryLock(QString* why);
    // Takes the lock again after its file was deleted (with the data folder, say); false
    // when another process took it meanwhile.
    bool retake(QString* why);

private:
    void release();

    QString m_folder;
    QString m_path;
    int m_fd = -1;
};
