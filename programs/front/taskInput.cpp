#include "programs/front/taskInput.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>

namespace {

/// Opening with these does not wait, whatever the file is.
constexpr int kReadAnything = O_RDONLY | O_NONBLOCK | O_NOCTTY;

Descriptor regularOnly(Descriptor file) {
    struct stat status = {};
    if (!file || fstat(file.get(), &status) != 0) {
        return {};
    }
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return {};
    }
    return file;
}

} // namespace

Descriptor openTaskDirectory(const std::string& path) {
    return Descriptor(open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

Descriptor openBelow(const Descriptor& directory, const std::string& relativePath, int flags) {
    constexpr int kAttempts = 100; // the kernel answers EAGAIN when a rename anywhere crossed its walk
    open_how how = {};
    how.flags = static_cast<unsigned>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    long number = -1;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        number = syscall(SYS_openat2, directory.get(), relativePath.c_str(), &how, sizeof how);
        if (number >= 0 || errno != EAGAIN) {
            break;
        }
    }
    return Descriptor(static_cast<int>(number));
}

Descriptor openTaskInput(const Descriptor& taskDirectory, const std::string& relativePath) {
    return regularOnly(openBelow(taskDirectory, relativePath, kReadAnything));
}

Descriptor openRegularFile(const std::string& path) {
    return regularOnly(Descriptor(open(path.c_str(), kReadAnything | O_CLOEXEC)));
}

std::string pathBelow(const std::string& directory, const std::string& path) {
    const std::string head = directory + '/';
    return path.compare(0, head.size(), head) == 0 ? path.substr(head.size()) : std::string();
}

bool isUnfinished(std::string_view path) {
    constexpr std::string_view kEnding = ".part";
    return path.size() > kEnding.size() && path.substr(path.size() - kEnding.size()) == kEnding;
}
