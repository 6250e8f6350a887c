#include "server/downloadArea.h"

#include "host/caller.h"
#include "server/trouble.h"
#include "util/file.h"

#include <fts.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <functional>
#include <memory>
#include <system_error>

namespace server {
namespace {

using namespace std::string_literals;

constexpr std::string_view kPictureFolder = "vexodlthumbnail";
constexpr std::string_view kUnfinished = ".part";

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::uint64_t hashOf(const std::string& text) {
    return std::hash<std::string>()(text);
}

} // namespace

std::string downloadFolder() {
    std::array<char, 4096> text = {};
    host::forgetFailure();
    if (GetTmpDownloadDir(text.data(), static_cast<int>(text.size())) < 0) {
        const host::Failure failure = host::lastFailure();
        throw Trouble(failure.kind == host::Failure::Kind::program
                          ? failure.program + ": " + failure.reason
                          : "download area: "s + kDownloadLink + " leads to no folder that can be written");
    }
    return text.data();
}

void actAsOwner() {
    if (geteuid() != 0) {
        return;
    }
    struct stat area = {};
    if (stat(kDownloadLink, &area) != 0) {
        throw Trouble("download area: "s + kDownloadLink + ": " + std::generic_category().message(errno));
    }
    if (area.st_uid == 0) {
        return;
    }
    const struct passwd* owner = getpwuid(area.st_uid); // NOLINT(concurrency-mt-unsafe): there is one thread
    const gid_t group = owner == nullptr ? area.st_gid : owner->pw_gid;
    const int listed = owner == nullptr ? setgroups(0, nullptr) : initgroups(owner->pw_name, group);
    if (listed != 0 || setgid(group) != 0 || setuid(area.st_uid) != 0) {
        throw Trouble("download area: cannot go on as its owner: " + std::generic_category().message(errno));
    }
}

std::optional<int> taskNumber(std::string_view text) {
    int task = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), task);
    if (error != std::errc() || task < 0 || std::to_string(task) != text) {
        return std::nullopt;
    }
    return task;
}

std::vector<int> tasksWithFolder(const std::string& downloadFolder) try {
    std::vector<int> tasks;
    for (const auto& entry : std::filesystem::directory_iterator(downloadFolder)) {
        const std::optional<int> task = taskNumber(entry.path().filename().native());
        if (task && entry.is_directory() && !entry.is_symlink()) {
            tasks.push_back(*task);
        }
    }
    std::sort(tasks.begin(), tasks.end());
    return tasks;
} catch (const std::filesystem::filesystem_error& error) {
    throw Trouble("download area: " + downloadFolder + ": " + error.code().message());
}

bool isFolder(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string taskFolder(const std::string& downloadFolder, int task) {
    return downloadFolder + '/' + std::to_string(task);
}

std::string pictureFolder(const std::string& taskFolder) {
    return taskFolder + '/' + std::string(kPictureFolder);
}

std::string_view withoutPart(std::string_view path) {
    return endsWith(path, kUnfinished) && path != kUnfinished ? path.substr(0, path.size() - kUnfinished.size()) : path;
}

bool isPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

FolderLook lookAt(const std::string& taskFolder) {
    FolderLook look;
    std::string path = taskFolder;
    const std::string pictures = pictureFolder(taskFolder) + '/';
    const std::array<char*, 2> roots = {path.data(), nullptr};
    const std::unique_ptr<FTS, int (*)(FTS*)> tree(fts_open(roots.data(), FTS_PHYSICAL | FTS_NOCHDIR, nullptr),
                                                   fts_close);
    if (tree == nullptr) {
        return look;
    }
    while (const FTSENT* entry = fts_read(tree.get())) {
        if (entry->fts_info == FTS_D || entry->fts_info == FTS_DP || entry->fts_statp == nullptr) {
            continue;
        }
        const struct stat& status = *entry->fts_statp;
        std::string file(entry->fts_path, entry->fts_pathlen);
        // Sums, since a folder lists its files in any order.
        if (file.compare(0, pictures.size(), pictures) == 0) {
            look.pictures += hashOf(file + '\0' + std::to_string(status.st_size));
            continue;
        }
        look.hasFiles = true;
        if (!endsWith(file, kUnfinished)) {
            file += '\0' + std::to_string(status.st_size) + ' ' + std::to_string(status.st_mtim.tv_sec) + '.' +
                    std::to_string(status.st_mtim.tv_nsec);
        }
        look.files += hashOf(file);
    }
    return look;
}

} // namespace server
