#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace server {

inline constexpr const char* kDownloadLink = "/var/services/download"; ///< leads to the download area

/// The folder that holds the tasks' folders. Throws Trouble where it cannot be read: an area that is not mounted.
std::string downloadFolder();

/// Goes on as the user who owns the download area where root has started this: what root made, that user's runs could
/// not change. Called before there are threads. Throws Trouble where that fails, or root finds no area.
void actAsOwner();

/// A task's number in plain decimal, as its folder is named; nothing else is one.
std::optional<int> taskNumber(std::string_view text);

/// The tasks that have a folder, ascending; a link is none. Throws Trouble where the area cannot be read.
std::vector<int> tasksWithFolder(const std::string& downloadFolder);

/// Is there a folder of the task? A link is none.
bool isFolder(const std::string& path);

std::string taskFolder(const std::string& downloadFolder, int task);
std::string pictureFolder(const std::string& taskFolder);

/// A file's path without what is behind it while it is downloaded.
std::string_view withoutPart(std::string_view path);

/// Is this the name of a file in the folder of the pictures, and no path to elsewhere?
bool isPlainName(std::string_view name);

/// What a task's folder looks like, told by numbers that change when it does.
struct FolderLook {
    std::uint64_t files = 0;    ///< names of all files, sizes and times of those that are not downloaded any more
    std::uint64_t pictures = 0; ///< names and sizes in the folder of the pictures
    bool hasFiles = false;      ///< any but those in the folder of the pictures
};

FolderLook lookAt(const std::string& taskFolder);

} // namespace server
