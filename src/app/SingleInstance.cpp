#include "SingleInstance.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// False when the path does not fit a socket address.
bool addressOf(const QString& path, sockaddr_un* address) {
    const QByteArray bytes = QFile::encodeName(path);
    if (bytes.size() >= qsizetype(sizeof(address->sun_path)))
        return false;
    std::memset(address, 0, sizeof(*address));
    address->sun_family = AF_UNIX;
    std::memcpy(address->sun_path, bytes.constData(), size_t(bytes.size()));
    return true;
}

} // namespace

SingleInstance::SingleInstance(QObject* parent)
    : QObject(parent) {}

SingleInstance::~SingleInstance() {
    if (m_listener < 0)
        return;
    ::close(m_listener);
    ::unlink(QFile::encodeName(m_path).constData());
}

QString SingleInstance::socketPath() {
    // One per login session, in the user's private runtime folder; only without one (no
    // session manager) in the shared temporary folder, named by user.
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (QDir::isAbsolutePath(runtime) && QFileInfo(runtime).isDir())
        return runtime + QStringLiteral("/mindmeter.socket");
    return QDir::tempPath() + QStringLiteral("/mindmeter-%1").arg(::getuid());
}

bool SingleInstance::claim() {
    sockaddr_un address;
    const QString path = socketPath();
    if (!addressOf(path, &address))
        return true; // no place to meet: run alone
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);

    const int other = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (other >= 0 && ::connect(other, generic, sizeof(address)) == 0) {
        static const char show[] = "show\n";
        const bool told = ::write(other, show, sizeof(show) - 1) == ssize_t(sizeof(show) - 1);
        ::close(other);
        if (told)
            return false;
    } else if (other >= 0) {
        ::close(other);
    }

    // Nobody answers: a socket left by a process that crashed is removed first.
    struct stat st;
    if (::lstat(address.sun_path, &st) == 0 && S_ISSOCK(st.st_mode) && st.st_uid == ::getuid())
        ::unlink(address.sun_path);
    m_listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_listener < 0)
        return false;
    if (::bind(m_listener, generic, sizeof(address)) != 0 || ::listen(m_listener, 8) != 0) {
        ::close(m_listener);
        m_listener = -1;
        return false;
    }
    m_path = path;
    ::chmod(address.sun_path, 0600);
    auto* notifier = new QSocketNotifier(m_listener, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &SingleInstance::acceptPeers);
    return true;
}

void SingleInstance::acceptPeers() {
    while (true) {
        const int peer = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (peer < 0)
            return;
        auto* notifier = new QSocketNotifier(peer, QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, [this, notifier, peer] {
            notifier->deleteLater();
            notifier->setEnabled(false);
            readPeer(peer);
        });
    }
}

void SingleInstance::readPeer(int peer) {
    char buffer[64];
    const ssize_t n = ::read(peer, buffer, sizeof(buffer));
    ::close(peer);
    if (n > 0 && QByteArray(buffer, n).contains("show"))
        emit showRequested();
}
