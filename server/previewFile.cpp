#include "server/previewFile.h"

#include "host/caller.h"
#include "server/page/previewFiles.h"
#include "server/previewPage.h"
#include "server/taskLock.h"
#include "server/trouble.h"
#include "util/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <string_view>
#include <system_error>

namespace server {
namespace {

constexpr const char* kName = "/previews.html";
constexpr const char* kNewName = "/.previews.html.new";
constexpr mode_t kMode = 0644;

[[noreturn]] void fail(const std::string& path) {
    throw Trouble(path + ": " + std::generic_category().message(errno));
}

/// @return the page as it stands, empty when there is none.
std::string readOwnPage(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    if (!file && errno == ENOENT) {
        return "";
    }
    if (!file && errno != ELOOP) {
        fail(path);
    }
    std::string page;
    if (file && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode)) {
        page.resize(static_cast<std::size_t>(status.st_size));
        const ssize_t length = pread(file.get(), page.data(), page.size(), 0);
        page.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    }
    if (page.find(kGenerator) == std::string::npos) {
        throw ForeignPage(path + " is not the page of previews, and was left");
    }
    return page;
}

void writeAll(const Descriptor& file, std::string_view text, const std::string& path) {
    while (!text.empty()) {
        const ssize_t written = write(file.get(), text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            fail(path);
        }
        text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
}

/// Puts a file into another's place when it is whole and on the disk: what was cut off would not be known as ours.
void replace(const std::string& path, const std::string& newPath, const std::string& page) {
    (void)unlink(newPath.c_str()); // of one who was killed
    const Descriptor file(open(newPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode));
    if (!file) {
        fail(newPath);
    }
    try {
        writeAll(file, page, newPath);
        if (fchmod(file.get(), kMode) != 0 || fsync(file.get()) != 0 || rename(newPath.c_str(), path.c_str()) != 0) {
            fail(path);
        }
    } catch (const Trouble&) {
        (void)unlink(newPath.c_str());
        throw;
    }
}

} // namespace

std::string writePreviewPage(const std::string& downloadFolder) {
    const TaskLock lock = TaskLock::takePage();
    std::string path = downloadFolder + kName;
    const std::string before = readOwnPage(path);
    std::string page;
    try {
        page = previewPage(host::allTasks(), host::allPictures());
    } catch (const std::exception& error) {
        throw Trouble(std::string("page of previews: ") + error.what());
    }
    if (page != before) {
        replace(path, downloadFolder + kNewName, page);
    }
    return path;
}

bool isPreviewPageThere(const std::string& downloadFolder) {
    struct stat status = {};
    return lstat((downloadFolder + kName).c_str(), &status) == 0;
}

void checkPreviewPage(const std::string& downloadFolder) {
    (void)readOwnPage(downloadFolder + kName);
}

} // namespace server
