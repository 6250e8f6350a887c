#pragma once

#include <sys/types.h>

#include <map>
#include <string>

/// A torrent engine in a process of its own, so that its memory and the moments it takes are not the caller's. The host
/// layer of this process is told to ask it.
class EngineProcess {
public:
    /// @param downloadRoot  where the tasks' directories lie.
    /// @param answers       to a request for a task's torrent, by task.
    EngineProcess(const std::string& downloadRoot, const std::map<int, std::string>& answers);
    ~EngineProcess();
    EngineProcess(const EngineProcess&) = delete;
    EngineProcess& operator=(const EngineProcess&) = delete;

private:
    pid_t process_;
};
