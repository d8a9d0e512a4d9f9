#pragma once

#include <functional>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

// Whether fn, run in a forked child, stops it with SIGABRT (as qFatal does).
inline bool abortsProcess(const std::function<void()>& fn) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(STDERR_FILENO); // the expected fatal message is noise here
        fn();
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
}
