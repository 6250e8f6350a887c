#include "programs/front/taskInput.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace {

/// Opening with these does not wait, whatever the file is.
constexpr int kReadAnything = O_RDONLY | O_NONBLOCK | O_NOCTTY;

Descriptor openPart(int directory, std::string_view name, int flags) {
    if (name.empty() || name == "." || name == "..") {
        errno = EINVAL;
        return {};
    }
    return Descriptor(openat(directory, std::string(name).c_str(), flags | O_NOFOLLOW | O_CLOEXEC));
}

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
    if (!directory) {
        return {};
    }
    std::string_view rest = relativePath;
    Descriptor folder;
    int from = directory.get();
    for (std::size_t slash = rest.find('/'); slash != std::string_view::npos; slash = rest.find('/')) {
        folder = openPart(from, rest.substr(0, slash), O_PATH | O_DIRECTORY);
        if (!folder) {
            return {};
        }
        from = folder.get();
        rest.remove_prefix(slash + 1);
    }
    return openPart(from, rest, flags);
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
