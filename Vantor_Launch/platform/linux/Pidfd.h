#pragma once

#include <csignal>
#include <sys/syscall.h>
#include <unistd.h>

// Direct system calls: the declarations in Debian 12's <sys/pidfd.h> lack C linkage for C++.
inline int openPidfd(pid_t processId) {
    return int(::syscall(SYS_pidfd_open, processId, 0U));
}

inline int signalThroughPidfd(int pidfd, int signal) {
    return int(::syscall(SYS_pidfd_send_signal, pidfd, signal, nullptr, 0U));
}
