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

/// @return the file with one byte locked; nothing when another has it and nobody waits.
std::optional<Descriptor> lockByte(off_t place, bool waits) {
    makeStateFile(kLockFile);
    Descriptor file(open(kLockFile, O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    if (!file) {
        fail();
    }
    // Of the open file, not of the process: threads of one run hold each their own.
    struct flock byte = {};
    byte.l_type = F_WRLCK;
    byte.l_whence = SEEK_SET;
    byte.l_start = place;
    byte.l_len = 1;
    while (fcntl(file.get(), waits ? F_OFD_SETLKW : F_OFD_SETLK, &byte) != 0) {
        if (errno == EAGAIN || errno == EACCES) {
            return std::nullopt;
        }
        if (errno != EINTR) {
            fail();
        }
    }
    return file;
}

} // namespace

std::optional<TaskLock> TaskLock::take(int task, WhenHeld whenHeld) {
    std::optional<Descriptor> file = lockByte(task, whenHeld == WhenHeld::wait);
    return file ? std::optional(TaskLock(std::move(*file))) : std::nullopt;
}

TaskLock TaskLock::takePage() {
    constexpr off_t kBehindAllTasks = off_t{1} << 31U;
    return TaskLock(std::move(*lockByte(kBehindAllTasks, true)));
}

} // namespace server
