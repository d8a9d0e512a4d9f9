#include "TrackingLock.h"

#include <QCoreApplication>

#include <cerrno>

#include <signal.h>

TrackingLock::TrackingLock(const QString& dataFolder)
    : m_folder(dataFolder)
    , m_lock(dataFolder + QStringLiteral("/tracking.lock")) {
    m_lock.setStaleLockTime(0); // stale only when its process is gone
}

bool TrackingLock::tryLock(QString* why) {
    if (m_lock.tryLock(0))
        return true;
    qint64 pid = 0;
    QString host, app;
    m_lock.getLockInfo(&pid, &host, &app);
    // A holder that has just died can keep its lock a moment longer: a child it was starting
    // holds the file open until the child runs its own program. Wait that moment out.
    if (m_lock.error() == QLockFile::LockFailedError && pid > 0 && ::kill(pid_t(pid), 0) != 0 &&
        errno == ESRCH && m_lock.tryLock(3000))
        return true;
    if (why)
        *why = m_lock.error() == QLockFile::LockFailedError
                   ? QStringLiteral("tracking is already running (process %1)").arg(pid)
                   : QStringLiteral("cannot take the tracking lock in %1").arg(m_folder);
    return false;
}

bool TrackingLock::retake(QString* why) {
    qint64 pid = 0;
    QString host, app;
    if (m_lock.getLockInfo(&pid, &host, &app)) {
        if (pid == QCoreApplication::applicationPid())
            return true; // still ours
        if (why)
            *why = QStringLiteral("tracking is already running (process %1)").arg(pid);
        return false;
    }
    // The file is gone: forget it (unlock() would remove only a file still there) and take
    // a new one.
    m_lock.unlock();
    return tryLock(why);
}
