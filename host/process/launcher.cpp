// What runs here after clone() does so in the memory of a caller that runs on. It has that thread's errno and thread
// data before it, so it calls the kernel only and is not instrumented (see CMakeLists.txt). Of the C library it calls
// clone() alone, which touches no thread data but errno, where it fails, and whose place in memory is known since this
// code was loaded (-fno-plt): the dynamic linker has nothing to do in the launcher.

#include "host/process/launcher.h"

#include "host/process/rawSystemCall.h"

#include <csignal>
#include <ctime>

#include <fcntl.h>
#include <linux/close_range.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

/// clone() by the C library's other name for it, which the thread sanitizer does not take for a fork.
extern "C" int __clone(int (*entry)(void*), void* stackEnd, int flags, void* argument, ...); // NOLINT

namespace host {
namespace {

constexpr int kSignals = 64;
constexpr int kCallerGone = kSignals; ///< told to the launcher when the calling thread ends; nobody else sends it
constexpr long kMaskSize = sizeof(unsigned long);
constexpr rlim_t kProgramDescriptors = 1024;
constexpr long long kSecond = 1'000'000'000;

constexpr unsigned long maskOf(int signal) {
    return 1UL << (signal - 1);
}

unsigned long setMask(unsigned long mask) {
    unsigned long former = 0;
    rawCall(SYS_rt_sigprocmask, SIG_SETMASK, address(&mask), address(&former), kMaskSize);
    return former;
}

/// Ignored signals stay ignored in a new program unless somebody says otherwise.
void resetSignalActions() {
    static constexpr struct {
        unsigned long action, flags, restorer, mask;
    } kDefault = {}; // the kernel's record, not the C library's
    for (int signal = 1; signal <= kSignals; ++signal) {
        rawCall(SYS_rt_sigaction, signal, address(&kDefault), 0, kMaskSize);
    }
}

[[noreturn]] void leave() {
    for (;;) {
        rawCall(SYS_exit_group, 0);
    }
}

/// A caller may hold more descriptors than its limit allows to open, or have a limit too low to load a library.
void setLimits() {
    constexpr rlimit64 kNoCore = {0, 0};
    rawCall(SYS_prlimit64, 0, RLIMIT_CORE, address(&kNoCore));
    rlimit64 descriptors;
    descriptors.rlim_max = kProgramDescriptors;
    rawCall(SYS_prlimit64, 0, RLIMIT_NOFILE, 0, address(&descriptors));
    descriptors.rlim_cur = descriptors.rlim_max < kProgramDescriptors ? descriptors.rlim_max : kProgramDescriptors;
    rawCall(SYS_prlimit64, 0, RLIMIT_NOFILE, address(&descriptors));
}

/// Leaves the program with 0, 1 and 2 alone, whichever of them the caller has.
long setDescriptors(const LaunchOrder& order) {
    if (order.output >= 0) {
        rawCall(SYS_dup3, order.output, 1);
    }
    if (order.errors >= 0) {
        rawCall(SYS_dup3, order.errors, 2);
    }
    rawCall(SYS_close, 0);
    const long closed = rawCall(SYS_close_range, 3, ~0U);
    if (closed < 0) {
        return closed;
    }
    const long null = rawCall(SYS_openat, AT_FDCWD, address("/dev/null"), O_RDWR); // 0, the lowest that is free
    if (null != 0) {
        return null;
    }
    if (order.output < 0) {
        rawCall(SYS_dup3, 0, 1);
    }
    if (order.errors < 0) {
        rawCall(SYS_dup3, 0, 2);
    }
    return 0;
}

/// The program's process from its first moment.
int becomeProgram(void* argument) {
    auto& order = *static_cast<LaunchOrder*>(argument);
    rawCall(SYS_setpgid, 0, 0);
    rawCall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL);
    if (rawCall(SYS_getppid) != order.launcher) {
        leave();
    }
    setLimits();
    long failure = setDescriptors(order);
    if (failure == 0) {
        setMask(0);
        failure = rawCall(SYS_execve, address(order.path), address(order.argv), address(order.environment));
    }
    order.startError = static_cast<int>(-failure);
    leave();
}

long long now() {
    timespec time;
    time.tv_sec = 0;
    time.tv_nsec = 0;
    rawCall(SYS_clock_gettime, CLOCK_MONOTONIC, address(&time));
    return time.tv_sec * kSecond + time.tv_nsec;
}

bool hasEnded(long program) {
    siginfo_t end;
    end.si_pid = 0;
    return rawCall(SYS_waitid, P_PID, program, address(&end), WEXITED | WNOHANG | WNOWAIT) < 0 || end.si_pid != 0;
}

/// Waits until the program has ended; it is not reaped.
/// @param events  SIGCHLD, and kCallerGone where that matters.
/// @return 0, ETIME at the deadline, ECHILD when the caller has gone.
int awaitEnd(long program, long long deadline, unsigned long events) {
    while (!hasEnded(program)) {
        const long long left = deadline - now();
        if (left <= 0) {
            return ETIME;
        }
        const timespec timeout = {left / kSecond, left % kSecond};
        if (rawCall(SYS_rt_sigtimedwait, address(&events), 0, address(&timeout), kMaskSize) == kCallerGone) {
            return ECHILD;
        }
    }
    return 0;
}

/// Lets a program that is cut short end what it has started outside of its process group, as a sandbox; gives it a
/// moment. That the caller has gone is told again for each thread of it that ends.
void askToEnd(long program) {
    rawCall(SYS_kill, -program, SIGTERM);
    awaitEnd(program, now() + kSecond, maskOf(SIGCHLD));
}

/// Ends what is left of the program's process group and reaps it, the program after the kill only: until then its
/// number, which is the group's, cannot become somebody else's.
int reapGroup(long program) {
    rawCall(SYS_kill, -program, SIGKILL);
    rawCall(SYS_kill, program, SIGKILL);
    int status = 0;
    rawCall(SYS_wait4, program, address(&status), __WALL);
    while (rawCall(SYS_wait4, -program, 0, __WALL) > 0) {
    }
    return status;
}

int launch(void* argument) {
    auto& order = *static_cast<LaunchOrder*>(argument);
    rawCall(SYS_prctl, PR_SET_PDEATHSIG, kCallerGone);
    if (rawCall(SYS_getppid) != order.caller) {
        leave();
    }
    rawCall(SYS_prctl, PR_SET_CHILD_SUBREAPER, 1); // what the program leaves behind is reaped here
    resetSignalActions();
    order.launcher = static_cast<pid_t>(rawCall(SYS_getpid));
    const long long deadline = now() + order.nanoseconds;
    const int program = __clone(becomeProgram, &order.programStack + 1, CLONE_VM | CLONE_VFORK | SIGCHLD, &order);
    if (program < 0) {
        if (const int cause = *order.callerErrno; cause > 0) { // 0 if a signal handler has just put its errno back
            order.error = cause;
        }
        leave();
    }
    const int cut = awaitEnd(program, deadline, maskOf(SIGCHLD) | maskOf(kCallerGone));
    if (cut != 0) {
        askToEnd(program);
    }
    order.waitStatus = reapGroup(program);
    order.error = cut != 0 ? cut : order.startError;
    leave();
}

} // namespace

pid_t startLauncher(LaunchOrder& order, int* pidfd) {
    const int flags = CLONE_VM | CLONE_FILES | (pidfd != nullptr ? CLONE_PIDFD : 0);
    const unsigned long former = setMask(~0UL); // no handler of the caller's may ever run in the launcher
    int launcher = __clone(launch, &order.launcherStack + 1, flags, &order, pidfd);
    if (launcher < 0) {
        launcher = -*order.callerErrno;
    }
    setMask(former);
    return launcher;
}

} // namespace host
