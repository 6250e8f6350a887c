#include "server/taskRows.h"

#include "host/caller.h"
#include "platform/thumbnailDatabase.h"
#include "server/downloadArea.h"
#include "server/trouble.h"
#include "util/descriptor.h"
#include "util/jsonAccess.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string_view>

namespace server {
namespace {

using jsonAccess::element;
using jsonAccess::member;
using jsonAccess::toInt64;
using jsonAccess::toText;

/// The folder of the pictures, opened; what is removed in it is so by its name alone, and no link leads elsewhere.
Descriptor openPictures(const std::string& taskFolder) {
    const Descriptor task(open(taskFolder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const std::string path = pictureFolder(taskFolder);
    const std::string name = path.substr(path.rfind('/') + 1);
    return Descriptor(task ? openat(task.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1);
}

bool isThere(const Descriptor& pictures, const std::string& name) {
    struct stat status = {};
    return pictures && !name.empty() && fstatat(pictures.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(status.st_mode) && status.st_size > 0;
}

bool removePicture(const Descriptor& pictures, const std::string& name) {
    return pictures && !name.empty() && unlinkat(pictures.get(), name.c_str(), 0) == 0;
}

std::vector<std::string> namesIn(const Descriptor& folder) {
    std::vector<std::string> names;
    const int again = folder ? openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
    const std::unique_ptr<DIR, int (*)(DIR*)> open(again < 0 ? nullptr : fdopendir(again), closedir);
    while (open != nullptr) {
        const dirent* entry = readdir(open.get()); // NOLINT(concurrency-mt-unsafe): the stream is this function's own
        if (entry == nullptr) {
            break;
        }
        if (const std::string_view name = entry->d_name; name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
    return names;
}

std::set<std::string> picturesOf(const std::vector<Row>& rows) {
    std::set<std::string> pictures;
    for (const Row& row : rows) {
        pictures.insert(row.picture);
    }
    return pictures;
}

template <typename Operation>
auto asked(Operation operation) {
    try {
        return operation();
    } catch (const std::exception& error) {
        throw Trouble(std::string("thumbnail database: ") + error.what());
    }
}

} // namespace

std::vector<Row> rowsOf(int task) {
    host::forgetFailure();
    Json::Value reply;
    if (DownloadThumbnailDBGetByTaskId(task, &reply) < 0) {
        throw Trouble("thumbnail database: " + host::lastFailure().reason);
    }
    std::vector<Row> rows;
    for (const Json::Value& entry : member(reply, "data")) {
        Row row;
        row.id = static_cast<int>(toInt64(member(entry, "thumbnail_id")));
        row.fileIndex = static_cast<int>(toInt64(member(entry, "file_index")));
        row.picture = toText(member(entry, "thumbnail_filename"));
        if (!isPlainName(row.picture)) {
            row.picture.clear();
        }
        row.source = toText(member(entry, "file_path"));
        rows.push_back(std::move(row));
    }
    return rows;
}

Removed removeUntrueRows(int task, const std::string& taskFolder, const Json::Value& taskFiles) {
    Removed removed;
    std::vector<int> untrue;
    const Descriptor pictures = openPictures(taskFolder);
    for (const Row& row : rowsOf(task)) {
        const std::string_view name = toText(member(element(member(taskFiles, "files"), row.fileIndex), "name"));
        const bool isOfAnother = withoutPart(row.source) != withoutPart(name);
        if (isOfAnother && removePicture(pictures, row.picture)) {
            ++removed.pictures;
        }
        if (isOfAnother || !isThere(pictures, row.picture)) {
            untrue.push_back(row.id);
        }
    }
    if (!untrue.empty()) {
        removed.rows = asked([&] { return host::removeRows(task, untrue); });
    }
    return removed;
}

Removed removeAll(int task, const std::string& taskFolder) {
    Removed removed;
    const std::vector<Row> rows = rowsOf(task);
    const Descriptor pictures = openPictures(taskFolder);
    const std::set<std::string> ours = picturesOf(rows);
    for (const std::string& name : namesIn(pictures)) {
        if (ours.count(name) != 0 && removePicture(pictures, name)) {
            ++removed.pictures;
        } else {
            ++removed.others;
        }
    }
    if (removed.others == 0) {
        (void)rmdir(pictureFolder(taskFolder).c_str());
    }
    removed.rows = asked([&] { return host::removeAllRows(task); });
    return removed;
}

bool holdsOnlyPictures(int task, const std::string& taskFolder) {
    const FolderLook look = lookAt(taskFolder);
    const std::vector<std::string> names = namesIn(openPictures(taskFolder));
    const std::set<std::string> ours = picturesOf(rowsOf(task));
    return !look.hasFiles && !names.empty() &&
           std::all_of(names.begin(), names.end(), [&](const std::string& name) { return ours.count(name) != 0; });
}

} // namespace server
