#include "server/stateFile.h"

#include "server/trouble.h"
#include "util/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

namespace server {

void makeStateFile(const char* path) {
    const Descriptor file(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    struct stat folder = {};
    const bool isMade = file && stat(std::filesystem::path(path).parent_path().c_str(), &folder) == 0 &&
                        (geteuid() != 0 || fchown(file.get(), folder.st_uid, folder.st_gid) == 0);
    if (!isMade && errno != EEXIST) {
        throw Trouble(std::string(path) + ": " + std::generic_category().message(errno));
    }
}

} // namespace server
