#pragma once

#include <json/value.h>

#pragma GCC visibility push(default)

/// @file
/// The torrent engine.

/// Asks the torrent engine for one task's torrent.
///
/// Which torrent belongs to the task, how the request is framed and how the engine is reached is the platform's
/// business; the caller names the task and the fields alone.
///
/// @param taskId  the download task.
/// @param fields  array of field names, e.g. "id", "name", "files", "fileStats".
/// @param reply   null on entry. On success an object {"arguments": {"torrents": [...]}} with at most one torrent,
///                which carries the fields asked for; unspecified on failure. Its shape is the engine's: the caller
///                checks it.
/// @return 0 when the engine answered, any other value when it could not be asked or refused.
/// Blocks, at most for the platform's own deadline. Never throws. Safe from any thread.
int VEXODownloadRpcTorrentGet(int taskId, const Json::Value& fields, Json::Value& reply);

#pragma GCC visibility pop
