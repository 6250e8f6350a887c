#include "programs/duration/selfConfinement.h"

#include <seccomp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <memory>

namespace {

using Filter = std::unique_ptr<void, decltype(&seccomp_release)>;

bool allow(const Filter& filter, int call) {
    return seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0) == 0;
}

bool allowOn(const Filter& filter, int call, int descriptor) {
    const scmp_arg_cmp first = SCMP_A0(SCMP_CMP_EQ, static_cast<scmp_datum_t>(descriptor), 0);
    return seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 1, first) == 0;
}

/// Memory, but none that can be executed.
bool allowMemory(const Filter& filter) {
    const scmp_arg_cmp protection = SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0);
    const scmp_arg_cmp anonymous = SCMP_A3(SCMP_CMP_MASKED_EQ, MAP_ANONYMOUS, MAP_ANONYMOUS);
    return seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, SCMP_SYS(mmap), 2, protection, anonymous) == 0 &&
           allow(filter, SCMP_SYS(munmap)) && allow(filter, SCMP_SYS(mremap)) && allow(filter, SCMP_SYS(brk)) &&
           allow(filter, SCMP_SYS(madvise));
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

/// The address space of this process in bytes; 0 where the kernel does not tell.
rlim_t addressSpace() {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

} // namespace

bool limitResources(rlim_t bytes, rlim_t seconds) {
    const rlim_t used = addressSpace();
    return used != 0 && lower(RLIMIT_AS, used + bytes, used + bytes) && lower(RLIMIT_CPU, seconds, 2 * seconds);
}

bool allowOnlyReading(int input) {
    const Filter filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)), &seccomp_release);
    return filter && allowMemory(filter) && allowOn(filter, SCMP_SYS(read), input) &&
           allowOn(filter, SCMP_SYS(pread64), input) && allowOn(filter, SCMP_SYS(lseek), input) &&
           allowOn(filter, SCMP_SYS(write), STDOUT_FILENO) && allowOn(filter, SCMP_SYS(write), STDERR_FILENO) &&
           allow(filter, SCMP_SYS(sendto)) && allow(filter, SCMP_SYS(getpid)) && allow(filter, SCMP_SYS(futex)) &&
           allow(filter, SCMP_SYS(clock_gettime)) && allow(filter, SCMP_SYS(rt_sigreturn)) &&
           allow(filter, SCMP_SYS(exit_group)) && seccomp_load(filter.get()) == 0;
}
