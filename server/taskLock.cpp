#include "server/taskLock.h"

#include "server/stateFile.h"
#include "server/trouble.h"

#include <fcntl.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace server {
namespace {

constexpr const char* kLockFile = "/var/lib/vexodl/locks";

[[noreturn]] void fail() {
    throw Trouble(std::string(kLockFile) + ": " + std::generic_category().message(errno));
}

} // namespace

std::optional<TaskLock> TaskLock::take(int task, WhenHeld whenHeld) {
    makeStateFile(kLockFile);
    Descriptor file(open(kLockFile, O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    if (!file) {
        fail();
    }
    // Of the open file, not of the process: threads of one run hold each their own.
    struct flock byte = {};
    byte.l_type = F_WRLCK;
    byte.l_whence = SEEK_SET;
    byte.l_start = task;
    byte.l_len = 1;
    while (fcntl(file.get(), whenHeld == WhenHeld::wait ? F_OFD_SETLKW : F_OFD_SETLK, &byte) != 0) {
        if (errno == EAGAIN || errno == EACCES) {
            return std::nullopt;
        }
        if (errno != EINTR) {
            fail();
        }
    }
    return TaskLock(std::move(file));
}

} // namespace server
