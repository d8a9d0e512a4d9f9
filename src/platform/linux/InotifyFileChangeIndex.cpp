#include "InotifyFileChangeIndex.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QMutexLocker>
#include <QSocketNotifier>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr quint32 watchMask = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE |
                              IN_ONLYDIR | IN_DONT_FOLLOW | IN_EXCL_UNLINK;

// The kernel's per-user watch limit, or a modest guess when it cannot be read.
int kernelWatchLimit() {
    QFile f(QStringLiteral("/proc/sys/fs/inotify/max_user_watches"));
    bool ok = false;
    int limit = 0;
    if (f.open(QIODevice::ReadOnly))
        limit = f.readAll().trimmed().toInt(&ok);
    return ok && limit > 0 ? limit : 8192;
}

qint64 mtimeMs(const struct stat& st) {
    return qint64(st.st_mtim.tv_sec) * 1000 + st.st_mtim.tv_nsec / 1000000;
}

} // namespace

InotifyFileChangeIndex::InotifyFileChangeIndex(const QString& root,
                                               const QSet<QString>& prunedFolderNames,
                                               const Clock& clock, Options options, QObject* parent)
    : QObject(parent)
    , m_root(QFile::encodeName(root))
    , m_clock(clock)
    , m_options(options) {
    for (const QString& name : prunedFolderNames)
        m_pruned.insert(QFile::encodeName(name));
    m_maxWatches =
        options.maxWatches > 0 ? options.maxWatches : std::max(kernelWatchLimit() / 2, 1);
}

InotifyFileChangeIndex::~InotifyFileChangeIndex() {
    delete m_notifier;
    if (m_fd >= 0)
        ::close(m_fd); // the kernel drops every watch with the descriptor
}

bool InotifyFileChangeIndex::start() {
    if (m_fd >= 0)
        return true;
    struct stat st {};
    auto walked = [this](QList<Change> folders) {
        std::sort(folders.begin(), folders.end(),
                  [](const Change& a, const Change& b) { return a.ms > b.ms; });
        QMutexLocker lock(&m_mutex);
        m_changedFolders = std::move(folders);
        m_walked = true;
        m_walkDone.wakeAll();
    };
    if (::stat(m_root.constData(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        walked({});
        return false;
    }
    m_rootDevice = quint64(st.st_dev);
    m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0) {
        qWarning("File changes are not followed: inotify is unavailable (%s)",
                 std::strerror(errno));
        walked({});
        return false;
    }
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &InotifyFileChangeIndex::readEvents);
    QList<Change> changedFolders;
    addTree(m_root, false, &changedFolders);
    walked(std::move(changedFolders));
    return true;
}

// --- Watches -----------------------------------------------------------------------------

bool InotifyFileChangeIndex::isPruned(const QByteArray& name) const {
    return name.startsWith('.') || m_pruned.contains(name);
}

void InotifyFileChangeIndex::reachLimit(const char* why) {
    m_limitReached.store(true);
    if (m_limitLogged)
        return;
    m_limitLogged = true;
    qWarning("File changes are followed in %d folders only: %s; the rest of the home folder "
             "is not watched",
             int(m_watchByPath.size()), why);
}

bool InotifyFileChangeIndex::addWatch(const QByteArray& path) {
    if (m_watchByPath.contains(path))
        return true;
    if (m_watchByPath.size() >= m_maxWatches) {
        reachLimit("the watch limit of this program was reached");
        return false;
    }
    const int wd = ::inotify_add_watch(m_fd, path.constData(), watchMask);
    if (wd < 0) {
        if (errno == ENOSPC || errno == ENOMEM)
            reachLimit("the kernel's inotify watch limit was reached");
        return false; // gone meanwhile, unreadable, not a folder: nothing to watch
    }
    // The same folder reached under a new name keeps its descriptor: move it.
    if (const auto old = m_pathByWatch.constFind(wd); old != m_pathByWatch.cend())
        m_watchByPath.remove(*old);
    m_pathByWatch.insert(wd, path);
    m_watchByPath.insert(path, wd);
    m_watchCount.store(int(m_watchByPath.size()));
    return true;
}

void InotifyFileChangeIndex::addTree(const QByteArray& top, bool recordRecentFiles,
                                     QList<Change>* changedFolders) {
    const qint64 now = m_clock.now().toMSecsSinceEpoch();
    const qint64 oldest = now - qint64(m_options.retentionSeconds) * 1000;
    // Depth first with an explicit stack: home folders can be deeper than a call stack.
    QList<QByteArray> pending{top};
    while (!pending.isEmpty()) {
        const QByteArray dir = pending.takeLast();
        const int fd = ::open(dir.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0)
            continue;
        struct stat st {};
        if (::fstat(fd, &st) != 0 || quint64(st.st_dev) != m_rootDevice) {
            ::close(fd);
            continue;
        }
        // Before the index started only the folders' times tell what changed recently.
        if (changedFolders && mtimeMs(st) >= oldest && changedFolders->size() < 4096)
            changedFolders->append({dir, std::min(mtimeMs(st), now)});
        // Watch before listing, so nothing written in between is missed.
        if (!addWatch(dir)) {
            ::close(fd);
            if (m_limitReached.load())
                return;
            continue;
        }
        DIR* d = ::fdopendir(fd);
        if (!d) {
            ::close(fd);
            continue;
        }
        while (const dirent* e = ::readdir(d)) {
            const QByteArray name(e->d_name);
            if (name == "." || name == "..")
                continue;
            unsigned char type = e->d_type;
            struct stat child {};
            const bool needStat = type == DT_UNKNOWN || (type == DT_REG && recordRecentFiles);
            if (needStat) {
                if (::fstatat(fd, e->d_name, &child, AT_SYMLINK_NOFOLLOW) != 0)
                    continue;
                type = S_ISDIR(child.st_mode)   ? DT_DIR
                       : S_ISREG(child.st_mode) ? DT_REG
                                                : DT_UNKNOWN;
            }
            if (type == DT_DIR) {
                if (!isPruned(name))
                    pending.append(dir + '/' + name);
            } else if (type == DT_REG && recordRecentFiles) {
                // A folder that just appeared (unpacked, moved in, made with its files at
                // once) may hold files written before its watch existed.
                const qint64 written = mtimeMs(child);
                if (written >= oldest)
                    record(dir + '/' + name, std::min(written, now));
            }
        }
        ::closedir(d);
    }
}

void InotifyFileChangeIndex::forgetWatch(int wd) {
    const auto it = m_pathByWatch.find(wd);
    if (it == m_pathByWatch.end())
        return;
    m_watchByPath.remove(*it);
    m_pathByWatch.erase(it);
    m_watchCount.store(int(m_watchByPath.size()));
}

void InotifyFileChangeIndex::forgetTree(const QByteArray& top) {
    const QByteArray prefix = top + '/';
    QList<int> gone;
    for (auto it = m_watchByPath.cbegin(); it != m_watchByPath.cend(); ++it)
        if (it.key() == top || it.key().startsWith(prefix))
            gone.append(it.value());
    for (int wd : gone) {
        ::inotify_rm_watch(m_fd, wd);
        forgetWatch(wd);
    }
}

// --- Events ------------------------------------------------------------------------------

void InotifyFileChangeIndex::readEvents() {
    alignas(inotify_event) char buffer[64 * 1024];
    for (;;) {
        const ssize_t n = ::read(m_fd, buffer, sizeof buffer);
        if (n <= 0)
            return; // drained (EAGAIN) or failed; the notifier calls again when there is more
        const char* p = buffer;
        const char* const end = buffer + n;
        while (end - p >= qsizetype(sizeof(inotify_event))) {
            inotify_event ev;
            std::memcpy(&ev, p, sizeof ev);
            const char* name = p + sizeof(inotify_event);
            if (end - name < qsizetype(ev.len))
                break;
            handleEvent(ev.wd, ev.mask, QByteArray(name, qsizetype(::strnlen(name, ev.len))));
            p = name + ev.len;
        }
    }
}

void InotifyFileChangeIndex::handleEvent(int wd, quint32 mask, const QByteArray& name) {
    if (mask & IN_Q_OVERFLOW) {
        // Events were lost: pick up any folder that appeared unseen.
        addTree(m_root, false);
        return;
    }
    if (mask & IN_IGNORED) {
        forgetWatch(wd); // the folder was deleted, moved out of reach, or unmounted
        return;
    }
    const auto dir = m_pathByWatch.constFind(wd);
    if (dir == m_pathByWatch.cend() || name.isEmpty())
        return;
    const QByteArray path = *dir + '/' + name;
    if (mask & IN_ISDIR) {
        if (mask & IN_MOVED_FROM)
            forgetTree(path);
        else if ((mask & (IN_CREATE | IN_MOVED_TO)) && !isPruned(name))
            addTree(path, true);
        return;
    }
    if (mask & (IN_CLOSE_WRITE | IN_MOVED_TO))
        record(path, m_clock.now().toMSecsSinceEpoch());
}

// --- Recent changes ----------------------------------------------------------------------

void InotifyFileChangeIndex::record(const QByteArray& path, qint64 ms) {
    QMutexLocker lock(&m_mutex);
    if (const auto it = m_changeByPath.find(path); it != m_changeByPath.end()) {
        m_changes.erase(*it);
        m_changeByPath.erase(it);
    }
    m_changes.push_back({path, ms});
    m_changeByPath.insert(path, std::prev(m_changes.end()));
    ++m_recorded;
    const qint64 oldest =
        m_clock.now().toMSecsSinceEpoch() - qint64(m_options.retentionSeconds) * 1000;
    while (!m_changes.empty() &&
           (qsizetype(m_changes.size()) > m_options.maxEntries || m_changes.front().ms < oldest)) {
        m_changeByPath.remove(m_changes.front().path);
        m_changes.pop_front();
    }
}

QStringList InotifyFileChangeIndex::modifiedWithin(int seconds) const {
    const qint64 since = m_clock.now().toMSecsSinceEpoch() - qint64(std::max(seconds, 0)) * 1000;
    QStringList paths;
    QMutexLocker lock(&m_mutex);
    for (const Change& c : m_changes)
        if (c.ms >= since)
            paths.append(QFile::decodeName(c.path));
    return paths;
}

QStringList InotifyFileChangeIndex::foldersChangedWithin(int seconds) const {
    const qint64 since = m_clock.now().toMSecsSinceEpoch() - qint64(std::max(seconds, 0)) * 1000;
    QMutexLocker lock(&m_mutex);
    if (!m_walked)
        m_walkDone.wait(&m_mutex, QDeadlineTimer(m_options.walkWaitMs));
    QStringList folders;
    for (const Change& c : m_changedFolders)
        if (c.ms >= since)
            folders.append(QFile::decodeName(c.path));
    return folders;
}

int InotifyFileChangeIndex::entryCount() const {
    QMutexLocker lock(&m_mutex);
    return int(m_changes.size());
}
