#pragma once

#include "host/engine/rpcClient.h"

#include <json/value.h>

#include <string>

namespace host {

/// Where the torrent engine is and where its tasks lie.
struct EngineSettings {
    std::string url;          ///< of the engine's RPC
    std::string downloadRoot; ///< the directory that holds the tasks' directories
    RpcLimits limits;
};

/// Asks the engine for the torrent of a task: the one whose download directory is the task's.
///
/// A file's name that leads out of the task's directory, or to the previews in it, is null in the answer; the file
/// keeps its place in the list.
/// @return {"torrents": [...]} with the torrent, or with none when the engine has none for the task.
/// Throws std::exception with the reason when it could not be asked.
Json::Value askForTaskTorrent(const EngineSettings& settings, int taskId, const Json::Value& fields);

} // namespace host
