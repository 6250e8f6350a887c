#include "programs/picture/sandboxFilter.h"

#include <fcntl.h>
#include <sched.h>
#include <seccomp.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <initializer_list>
#include <memory>

namespace {

using Filter = std::unique_ptr<void, decltype(&seccomp_release)>;

bool allow(const Filter& filter, std::initializer_list<int> calls) {
    return std::all_of(calls.begin(), calls.end(),
                       [&](int call) { return seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0) == 0; });
}

bool allowWhen(const Filter& filter, int call, scmp_arg_cmp condition) {
    return seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 1, condition) == 0;
}

bool allowFiles(const Filter& filter) {
    return allow(filter, {SCMP_SYS(read),      SCMP_SYS(readv),      SCMP_SYS(pread64), SCMP_SYS(write),
                          SCMP_SYS(writev),    SCMP_SYS(pwrite64),   SCMP_SYS(lseek),   SCMP_SYS(ftruncate),
                          SCMP_SYS(open),      SCMP_SYS(openat),     SCMP_SYS(close),   SCMP_SYS(access),
                          SCMP_SYS(faccessat), SCMP_SYS(faccessat2), SCMP_SYS(stat),    SCMP_SYS(fstat),
                          SCMP_SYS(lstat),     SCMP_SYS(newfstatat), SCMP_SYS(statx),   SCMP_SYS(getdents64),
                          SCMP_SYS(readlink),  SCMP_SYS(readlinkat), SCMP_SYS(getcwd),  SCMP_SYS(dup)});
}

/// Without the commands by which a descriptor sends signals to any process of the user.
bool allowDescriptorFlags(const Filter& filter) {
    constexpr std::array<scmp_datum_t, 5> kCommands = {F_GETFD, F_SETFD, F_GETFL, F_DUPFD, F_DUPFD_CLOEXEC};
    return std::all_of(kCommands.begin(), kCommands.end(), [&](scmp_datum_t command) {
        return allowWhen(filter, SCMP_SYS(fcntl), SCMP_A1_32(SCMP_CMP_EQ, command, 0));
    });
}

bool allowMemory(const Filter& filter) {
    return allow(filter, {SCMP_SYS(brk), SCMP_SYS(mmap), SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(mprotect),
                          SCMP_SYS(madvise)});
}

/// The program's own start is an execve(2) behind the filter. clone3(2) hides its flags from a filter, so the C library
/// is left with clone(2).
bool allowItself(const Filter& filter) {
    constexpr scmp_datum_t kOfClone = CLONE_THREAD | CLONE_NEWNS | CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET |
                                      CLONE_NEWIPC | CLONE_NEWUTS | CLONE_NEWCGROUP;
    return allow(filter, {SCMP_SYS(execve),
                          SCMP_SYS(exit),
                          SCMP_SYS(exit_group),
                          SCMP_SYS(arch_prctl),
                          SCMP_SYS(set_tid_address),
                          SCMP_SYS(set_robust_list),
                          SCMP_SYS(rseq),
                          SCMP_SYS(futex),
                          SCMP_SYS(sched_yield),
                          SCMP_SYS(sched_getaffinity),
                          SCMP_SYS(rt_sigaction),
                          SCMP_SYS(rt_sigprocmask),
                          SCMP_SYS(rt_sigreturn),
                          SCMP_SYS(sigaltstack),
                          SCMP_SYS(restart_syscall),
                          SCMP_SYS(getpid),
                          SCMP_SYS(gettid),
                          SCMP_SYS(getuid),
                          SCMP_SYS(geteuid),
                          SCMP_SYS(getgid),
                          SCMP_SYS(getegid)}) &&
           allowWhen(filter, SCMP_SYS(prlimit64), SCMP_A0_32(SCMP_CMP_EQ, 0, 0)) &&
           allowWhen(filter, SCMP_SYS(clone), SCMP_A0(SCMP_CMP_MASKED_EQ, kOfClone, CLONE_THREAD));
}

bool allowQuestions(const Filter& filter) {
    return allow(filter, {SCMP_SYS(clock_gettime), SCMP_SYS(clock_getres), SCMP_SYS(gettimeofday), SCMP_SYS(time),
                          SCMP_SYS(times), SCMP_SYS(getrusage), SCMP_SYS(nanosleep), SCMP_SYS(clock_nanosleep),
                          SCMP_SYS(getrandom), SCMP_SYS(sysinfo), SCMP_SYS(uname)});
}

} // namespace

bool writeSandboxFilter(int descriptor) {
    const Filter filter(seccomp_init(SCMP_ACT_ERRNO(ENOSYS)), &seccomp_release);
    return filter && seccomp_attr_set(filter.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS) == 0 &&
           allowFiles(filter) && allowDescriptorFlags(filter) && allowMemory(filter) && allowItself(filter) &&
           allowQuestions(filter) && seccomp_export_bpf(filter.get(), descriptor) == 0;
}
