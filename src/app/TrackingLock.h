#pragma once

#include <QLockFile>
#include <QString>

// One tracking process per user — the tray app or `mindmeter track` — so no minute is
// counted twice. The lock is a file beside the database, released when the process ends,
// however it ends.
class TrackingLock {
public:
    explicit TrackingLock(const QString& dataFolder);

    // False, with the reason in *why ("tracking is already running (process 1234)"), when
    // another process holds it or it cannot be taken.
    bool tryLock(QString* why);
    // Takes the lock again after its file was deleted (with the data folder, say); false
    // when another process took it meanwhile.
    bool retake(QString* why);

private:
    QString m_folder;
    QLockFile m_lock;
};
