#pragma once

#include <sys/types.h>

#include <map>
#include <string>

/// A torrent engine as far as the host layer asks one, in a process of its own, so that its memory and the moments it
/// takes are not the caller's. The host layer of this process is told to ask it.
class LoopbackEngine {
public:
    /// @param downloadRoot  where the tasks' directories lie.
    /// @param answers       to a request for a task's torrent, by task.
    LoopbackEngine(const std::string& downloadRoot, const std::map<int, std::string>& answers);
    ~LoopbackEngine();
    LoopbackEngine(const LoopbackEngine&) = delete;
    LoopbackEngine& operator=(const LoopbackEngine&) = delete;

private:
    pid_t process_;
};
