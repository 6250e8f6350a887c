#include "platform/fileSystem.h"

#include "host/failure.h"
#include "util/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <string>

namespace {

/// Owner and mode of what is made.
struct Ownership {
    uid_t uid; ///< all bits set leaves the caller's
    gid_t gid; ///< likewise
    mode_t mode;
};

// Through a descriptor, so that nobody can put a link to something else in between.
bool own(const std::string& path, const Ownership& ownership) {
    const Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return directory && ::fchown(directory.get(), ownership.uid, ownership.gid) == 0 &&
           ::fchmod(directory.get(), ownership.mode) == 0;
}

bool makeOne(const std::string& path, const Ownership& ownership) {
    return ::mkdir(path.c_str(), ownership.mode) == 0 ? own(path, ownership) : errno == EEXIST;
}

bool makeParents(const std::string& path, const Ownership& ownership) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        if (!makeOne(path.substr(0, slash), ownership)) {
            return false;
        }
    }
    return true;
}

/// A link to a directory is not one here: what it leads to may belong to somebody else.
bool isDirectoryItself(const std::string& path) {
    struct stat status {};
    const bool isDirectory = ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    if (!isDirectory) {
        errno = ENOTDIR;
    }
    return isDirectory;
}

bool makeDirectory(std::string path, bool parents, const Ownership& ownership) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back(); // a link with a slash behind it would be followed
    }
    bool made = makeOne(path, ownership);
    if (!made && errno == ENOENT && parents) {
        made = makeParents(path, ownership) && makeOne(path, ownership);
    }
    return made && isDirectoryItself(path);
}

} // namespace

int VEXOFSMkdirP(const char* path, const char* /*base*/, int parents, int uid, int gid, mode_t mode) {
    if (path == nullptr || *path == '\0') {
        return -1;
    }
    try {
        const Ownership ownership{static_cast<uid_t>(uid), static_cast<gid_t>(gid), mode & 07777U};
        if (makeDirectory(path, parents != 0, ownership)) {
            return 0;
        }
        const int error = errno;
        host::keepFailure(host::Failure::Kind::folder, error, std::string(path) + ": " + host::errorText(error));
        return -1;
    } catch (const std::exception&) {
        return -1; // no memory
    }
}
