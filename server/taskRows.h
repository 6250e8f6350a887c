#pragma once

#include <json/value.h>

#include <set>
#include <string>
#include <vector>

namespace server {

// What is recorded of a task, and the pictures that this tells of. A picture is ours when a row has its name. All throw
// Trouble where the database cannot be used.

/// A row of a task.
struct Row {
    int id = -1;
    int fileIndex = -1;
    std::string picture; ///< name in the folder of the pictures; empty where the row holds no plain name
    std::string source;  ///< relative to the task's folder; foreign text
};

std::vector<Row> rowsOf(int task);

/// What was removed.
struct Removed {
    int rows = 0;
    int pictures = 0;
    int others = 0; ///< files in the folder of the pictures that were left, since no row tells of them
};

/// Removes the rows that are not true any more, whose picture is gone or which were made of another file than the
/// torrent has in that place, and the latter's pictures.
/// @param taskFiles  the torrent item, of any shape.
Removed removeUntrueRows(int task, const std::string& taskFolder, const Json::Value& taskFiles);

/// Removes all rows and pictures of a task and, when nothing else is in it, the folder of the pictures. Rows are
/// removed last, so that one who is killed can begin again.
Removed removeAll(int task, const std::string& taskFolder);

/// Does the folder hold pictures of ours, and nothing else at all?
bool holdsOnlyPictures(int task, const std::string& taskFolder);

} // namespace server
