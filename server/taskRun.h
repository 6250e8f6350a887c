#pragma once

#include "host/caller.h"
#include "server/downloadArea.h"
#include "server/memory.h"

#include <ctime>
#include <optional>
#include <string>

namespace server {

/// One task as a look at all of them found it.
struct SeenTask {
    int task = 0;
    std::string folder;
    host::TaskTorrent torrent;
    FolderLook look;
    KnownTask known;     ///< from an earlier run; without a stamp when there was none
    bool wanted = false; ///< by its number: remembered failures are tried again, and another run is waited for
};

/// What a task is known by when it has so many rows: nothing needs to be done while this stays the same.
std::string stampOf(const host::TaskTorrent& torrent, const FolderLook& look, int rows);

/// Is there something to be done for the task now?
bool isDue(const SeenTask& seen, int rows, std::time_t now);

/// Removes what is not true any more, makes what is missing and remembers what failed, in at most ten minutes and the
/// time of one picture; tells on standard output what is new. Throws Trouble.
void runTask(const SeenTask& seen, Memory& memory);

/// Removes what is left of a task whose torrent is gone: its pictures, rows and folder. Throws Trouble.
void sweepTask(int task, const std::string& folder, Memory& memory);

} // namespace server
