#include "TrackingLock.h"

#include <QFile>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

flock wholeFile(short type) {
    flock lock{};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return lock; // l_start 0 and l_len 0: the whole file, however long
}

} // namespace

TrackingLock::TrackingLock(const QString& dataFolder)
    : m_folder(dataFolder)
    , m_path(dataFolder + QStringLiteral("/tracking.lock")) {}

TrackingLock::~TrackingLock() {
    release();
}

void TrackingLock::release() {
    if (m_fd >= 0)
        ::close(m_fd); // closing drops the record lock
    m_fd = -1;
}

bool TrackingLock::tryLock(QString* why) {
    if (m_fd >= 0)
        return true;
    const int fd =
        ::open(QFile::encodeName(m_path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        if (why)
            *why = QStringLiteral("cannot take the tracking lock in %1: %2")
                       .arg(m_folder, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    flock lock = wholeFile(F_WRLCK);
    if (::fcntl(fd, F_SETLK, &lock) == 0) {
        m_fd = fd;
        // The holder's number, for a person looking at the folder; the lock is what counts,
        // so a failure to write it changes nothing.
        const QByteArray pid = QByteArray::number(qint64(::getpid())) + '\n';
        [[maybe_unused]] const bool noted =
            ::ftruncate(fd, 0) == 0 && ::pwrite(fd, pid.constData(), size_t(pid.size()), 0) > 0;
        return true;
    }
    const int lockError = errno;
    flock holder = wholeFile(F_WRLCK);
    const bool held = (lockError == EAGAIN || lockError == EACCES) &&
                      ::fcntl(fd, F_GETLK, &holder) == 0 && holder.l_type != F_UNLCK;
    ::close(fd);
    if (held && why)
        *why = QStringLiteral("tracking is already running (process %1)").arg(holder.l_pid);
    else if (why)
        *why = QStringLiteral("cannot take the tracking lock in %1: %2")
                   .arg(m_folder, QString::fromLocal8Bit(std::strerror(lockError)));
    return false;
}

bool TrackingLock::retake(QString* why) {
    struct stat held {
    }, named{};
    if (m_fd >= 0 && ::fstat(m_fd, &held) == 0 &&
        ::stat(QFile::encodeName(m_path).constData(), &named) == 0 && held.st_dev == named.st_dev &&
        held.st_ino == named.st_ino)
        return true; // the file is still the one this process locked
    // The file is gone or another in its place: let the old one go and lock the one there now.
    release();
    return tryLock(why);
}
