#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// @file
/// What this host layer offers, beyond the operations of platform/, to a program that looks after all tasks of a
/// server. The library never sees it. All functions may be called from any thread and block until the neighbour has
/// answered.

namespace host {

/// Why an operation of platform/ failed.
struct Failure {
    enum class Kind {
        none,
        engine,   ///< the torrent engine could not be asked, or refused
        database, ///< the thumbnail database
        folder,   ///< a directory could not be made
        program,  ///< a program could not be run, or ended with another status than 0
    };
    Kind kind = Kind::none;
    int status = 0; ///< of a program: its exit status, or a negative errno: why it could not be run, -ETIME when it was
                    ///< killed at the deadline, -ECANCELED when a signal ended it; of a folder: an errno
    std::string program; ///< path of the program
    std::string
        reason; ///< one line: what the neighbour said, the last line of a program's standard error; foreign text
};

/// The calling thread's last failure since forgetFailure().
Failure lastFailure();
void forgetFailure();

/// One torrent of the engine whose download directory is a task's.
struct TaskTorrent {
    std::string hash;
    std::string name;               ///< foreign text
    std::int64_t addedDate = 0;     ///< seconds since 1970
    std::int64_t sizeWhenDone = 0;  ///< bytes of the wanted files
    std::int64_t haveValid = 0;     ///< bytes that are there and verified
    std::int64_t leftUntilDone = 0; ///< bytes
    int wantedFiles = 0;
    int torrents = 1; ///< that download into this directory: of more than one no pictures are made
};

struct EngineTasks {
    std::map<int, TaskTorrent> tasks; ///< by the task's number
    std::set<std::string> torrents;   ///< info hashes of all the engine's torrents, those of no task included
};

/// Asks the engine for all tasks at once. Throws std::exception with the reason when it could not be asked.
EngineTasks allTasks();

struct AddedTorrent {
    std::string hash;
    bool isNew = false; ///< else the engine had it already, and it stays where it was
};

/// Gives the engine a torrent that it shall download into the directory of a task, which is there already.
/// @param torrent  the contents of a .torrent file, or a magnet link.
/// Throws std::exception with the reason.
AddedTorrent addTorrent(const std::string& torrent, int task);

/// Has the engine move a torrent and its files into the directory of a task, which is there already. The engine
/// answers before it begins. Throws std::exception with the reason.
void moveTorrent(const std::string& hash, int task);

/// @return how many rows each task has; a task without rows is not there. Throws std::exception with the reason.
std::map<int, int> rowCounts();

/// A picture of which a row tells. The texts are what the row holds: foreign.
struct RecordedPicture {
    int task = -1;
    int fileIndex = -1;
    int second = 0;     ///< "thumbnail_second": the time of a film's frame
    std::string name;   ///< "thumbnail_filename"
    std::string source; ///< "file_path": relative to the task's directory
};

/// @return all rows, by task, file and picture. Throws std::exception with the reason.
std::vector<RecordedPicture> allPictures();

/// Removes the rows of these numbers ("thumbnail_id") that belong to the task, durably.
/// @return how many there were. Throws std::exception with the reason.
int removeRows(int taskId, const std::vector<int>& thumbnailIds);

/// Removes all rows of a task. @return and throws as removeRows().
int removeAllRows(int taskId);

} // namespace host

#pragma GCC visibility pop
