#include "programs/service/userQuota.h"

#include "util/descriptor.h"

#include <fcntl.h>
#include <sys/quota.h>
#include <sys/syscall.h>

#include <cerrno>
#include <ctime>

namespace {

constexpr std::uint64_t kBlockBytes = 1024; // of limits; the space in use is told in bytes

QuotaRoom roomWithin(const dqblk& quota) {
    const std::uint64_t hardLimit = std::uint64_t{quota.dqb_bhardlimit} * kBlockBytes;
    const std::uint64_t softLimit = std::uint64_t{quota.dqb_bsoftlimit} * kBlockBytes;
    const bool graceIsOver = quota.dqb_btime != 0 && static_cast<std::uint64_t>(std::time(nullptr)) >= quota.dqb_btime;
    if (softLimit != 0 && quota.dqb_curspace > softLimit && graceIsOver) {
        return {0, 0};
    }
    if (hardLimit == 0) {
        return {};
    }
    return {hardLimit > quota.dqb_curspace ? hardLimit - quota.dqb_curspace : 0, 0};
}

} // namespace

QuotaRoom userQuotaRoom(std::uint32_t uid, const char* path) {
    const Descriptor target(open(path, O_PATH | O_CLOEXEC));
    dqblk quota = {};
    if (target && syscall(SYS_quotactl_fd, target.get(), QCMD(Q_GETQUOTA, USRQUOTA), uid, &quota) == 0) {
        return roomWithin(quota);
    }
    const bool hasNone = errno == ENOSYS || errno == EOPNOTSUPP || errno == EINVAL || // no such kind of quota here
                         errno == ESRCH;                                              // not switched on
    return hasNone ? QuotaRoom{} : QuotaRoom{0, errno};
}
