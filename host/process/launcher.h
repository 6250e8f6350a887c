#pragma once

#include <array>
#include <cerrno>

#include <sys/types.h>

namespace host {

// The launcher is a process of its own between the caller and the program: a clone of the caller that shares its memory
// and descriptors, runs no program and has no exit signal. The kernel therefore keeps it for the caller alone, whether
// the caller ignores SIGCHLD or waits for any child in some other thread, and the program is the launcher's child, of
// whose end it learns the truth. Sharing the memory makes its start as quick in a caller of 8 GiB as in one of 8 MiB.

/// One program to run: filled by the caller, answered by the launcher, and left alone by the caller in between.
struct LaunchOrder {
    const char* path;
    char* const* argv;
    char* const* environment;
    int output = -1;       ///< descriptor above 2 that becomes standard output; -1 for /dev/null
    int errors = -1;       ///< the same for standard error
    long long nanoseconds; ///< after which the program is killed with its process group
    pid_t caller;
    int* callerErrno; ///< of the thread that starts the launcher

    int error = ECHILD; ///< 0: the program ran to its end; ETIME: it was killed; else why it could not be started
    int waitStatus = 0; ///< how it ended, when error is 0

    pid_t launcher = 0;
    int startError = 0;
    alignas(16) std::array<char, 4096> launcherStack;
    alignas(16) std::array<char, 4096> programStack;
};

/// Starts the launcher of an order.
///
/// The answer is complete when the launcher has ended; the caller then reaps it, by its number and with __WALL. Until
/// then the launcher may write the calling thread's errno at any moment, so nothing may be decided by it.
/// @param pidfd  null, or where a descriptor that becomes readable at that moment is stored; the caller closes it. On
///               failure a number may stand there as well: that of a descriptor which the kernel has closed again.
/// @return the launcher's process number, or a negative errno.
pid_t startLauncher(LaunchOrder& order, int* pidfd);

} // namespace host
