#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace server {

/// The folder that holds the tasks' folders. Throws Trouble where it cannot be read: an area that is not mounted.
std::string downloadFolder();

/// A task's number in plain decimal, as its folder is named; nothing else is one.
std::optional<int> taskNumber(std::string_view text);

/// The tasks that have a folder, ascending; a link is none. Throws Trouble where the area cannot be read.
std::vector<int> tasksWithFolder(const std::string& downloadFolder);

/// Is there a folder of the task? A link is none.
bool isFolder(const std::string& path);

std::string taskFolder(const std::string& downloadFolder, int task);
std::string pictureFolder(const std::string& taskFolder);

/// What a task's folder looks like, told by numbers that change when it does.
struct FolderLook {
    std::uint64_t files = 0;    ///< names of all files, sizes and times of those that are not downloaded any more
    std::uint64_t pictures = 0; ///< names and sizes in the folder of the pictures
    bool hasFiles = false;      ///< any but those in the folder of the pictures
};

FolderLook lookAt(const std::string& taskFolder);

} // namespace server
