#include "UnixSignalWatcher.h"

#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// The handler may only do async-signal-safe work: it writes the signal number into a
// socket that the event loop watches.
int signalSockets[2] = {-1, -1};

void forwardSignal(int signal) {
    const unsigned char number = static_cast<unsigned char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(signalSockets[0], &number, 1);
}

} // namespace

UnixSignalWatcher::UnixSignalWatcher(std::initializer_list<int> signalNumbers, QObject* parent)
    : QObject(parent) {
    if (signalSockets[0] < 0 &&
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalSockets) != 0)
        return;
    ::fcntl(signalSockets[0], F_SETFL, O_NONBLOCK);
    m_notifier = std::make_unique<QSocketNotifier>(signalSockets[1], QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &UnixSignalWatcher::readSignal);
    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int s : signalNumbers)
        ::sigaction(s, &action, nullptr);
}

UnixSignalWatcher::~UnixSignalWatcher() = default;

void UnixSignalWatcher::readSignal() {
    unsigned char number = 0;
    if (::read(signalSockets[1], &number, 1) == 1)
        emit received(number);
}
