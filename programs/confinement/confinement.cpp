#include "programs/confinement/confinement.h"

#include <linux/landlock.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <initializer_list>
#include <memory>

namespace {

/// What the kernel takes as the rules of a Landlock, by its newest version that is used here.
struct LandlockRules {
    std::uint64_t files;
    std::uint64_t network;
    std::uint64_t scopes; ///< signals and abstract sockets
};

using Filter = std::unique_ptr<void, decltype(&seccomp_release)>;

bool allow(const Filter& filter, std::initializer_list<int> calls) {
    return std::all_of(calls.begin(), calls.end(),
                       [&](int call) { return seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0) == 0; });
}

bool allowWhen(const Filter& filter, int call, scmp_arg_cmp condition) {
    return seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 1, condition) == 0;
}

/// Memory that can be executed would make it easier to get around in here.
bool allowMemory(const Filter& filter) {
    const scmp_arg_cmp notExecutable = SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0);
    return allow(filter, {SCMP_SYS(brk), SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(madvise)}) &&
           allowWhen(filter, SCMP_SYS(mmap), notExecutable) && allowWhen(filter, SCMP_SYS(mprotect), notExecutable);
}

/// clone3(2) hides its flags from a filter: the C library then takes clone(2), with these.
bool allowThreads(const Filter& filter) {
    constexpr scmp_datum_t kThread = CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | CLONE_THREAD | CLONE_SYSVSEM |
                                     CLONE_SETTLS | CLONE_PARENT_SETTID | CLONE_CHILD_CLEARTID;
    return allowWhen(filter, SCMP_SYS(clone), SCMP_A0(SCMP_CMP_EQ, kThread, 0)) &&
           allow(filter, {SCMP_SYS(set_robust_list), SCMP_SYS(rseq), SCMP_SYS(rt_sigprocmask), SCMP_SYS(sched_yield),
                          SCMP_SYS(sched_getaffinity), SCMP_SYS(exit)});
}

bool allowLiberty(const Filter& filter, Liberty liberty) {
    const scmp_arg_cmp connected = SCMP_A4(SCMP_CMP_EQ, 0, 0);
    return (liberty != Liberty::threads || allowThreads(filter)) &&
           (liberty != Liberty::systemLog ||
            (allowWhen(filter, SCMP_SYS(sendto), connected) && allow(filter, {SCMP_SYS(getpid)})));
}

bool closeSystemCalls(Liberty liberty) {
    const Filter filter(seccomp_init(SCMP_ACT_ERRNO(ENOSYS)), &seccomp_release);
    (void)seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_TSYNC, 1); // for all threads, where the kernel can
    return filter && allowMemory(filter) && allowLiberty(filter, liberty) &&
           allow(filter, {SCMP_SYS(read), SCMP_SYS(pread64), SCMP_SYS(lseek), SCMP_SYS(write), SCMP_SYS(futex),
                          SCMP_SYS(clock_gettime), SCMP_SYS(getrandom), SCMP_SYS(rt_sigreturn),
                          SCMP_SYS(restart_syscall), SCMP_SYS(exit_group)}) &&
           seccomp_load(filter.get()) == 0;
}

/// Lowers a limit, or leaves it where it is lower already.
bool lower(__rlimit_resource resource, rlim_t soft, rlim_t hard) {
    rlimit both = {};
    if (getrlimit(resource, &both) != 0) {
        return false;
    }
    both.rlim_max = std::min(both.rlim_max, hard);
    both.rlim_cur = std::min({both.rlim_cur, both.rlim_max, soft});
    return setrlimit(resource, &both) == 0;
}

} // namespace

bool limitResources(const Limits& limits) {
    constexpr rlim_t kGrace = 2; // SIGXCPU tells which limit it was, SIGKILL at the hard one does not
    return lower(RLIMIT_AS, limits.addressSpaceBytes, limits.addressSpaceBytes) &&
           lower(RLIMIT_CPU, limits.processorSeconds, limits.processorSeconds + kGrace) &&
           lower(RLIMIT_FSIZE, limits.fileBytes, limits.fileBytes) && lower(RLIMIT_CORE, 0, 0);
}

bool closeFiles() {
    constexpr std::array<unsigned, 6> kRightsToFiles = {0, 13, 14, 15, 15, 16}; // the number of them in each version
    constexpr long kWithNetwork = 4;
    constexpr long kWithScopes = 6;
    const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) {
        return false;
    }
    const auto known = std::min(static_cast<std::size_t>(version), kRightsToFiles.size() - 1);
    const LandlockRules rules = {(std::uint64_t{1} << kRightsToFiles.at(known)) - 1, version < kWithNetwork ? 0U : 3U,
                                 version < kWithScopes ? 0U : 3U};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    const long wall = syscall(SYS_landlock_create_ruleset, &rules, sizeof rules, 0);
    const bool closed = wall >= 0 && syscall(SYS_landlock_restrict_self, wall, 0) == 0;
    close(static_cast<int>(wall));
    return closed;
}

bool confine(Liberty liberty) {
    (void)closeFiles();
    return closeSystemCalls(liberty);
}
