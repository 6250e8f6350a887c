#pragma once

#include <json/value.h>

#pragma GCC visibility push(default)

/// @file
/// The thumbnail database. A row is a JSON object with the integers "thumbnail_id", "task_id", "file_index",
/// "thumbnail_index", "thumbnail_second" and "create_time" (seconds since the Unix epoch) and the strings
/// "thumbnail_filename" and "file_path"; (task_id, file_index, thumbnail_index) names one thumbnail.
///
/// Both operations block until the database has answered, never throw and are safe from any thread; a negative result
/// is a failure and every other result a success.

/// Reads all rows of a task.
///
/// @param reply  a null value, owned by the caller. On success it is an object whose member "data" is the array of the
///               task's rows, empty or missing when there are none; unspecified on failure.
int DownloadThumbnailDBGetByTaskId(int taskId, Json::Value* reply);

/// Stores one row durably: once a success is reported, the row survives the loss of power.
///
/// The database gives the row its own "thumbnail_id", whatever the row holds. A thumbnail that is recorded already
/// stays one row.
int DownloadThumbnailDBCreate(Json::Value* row);

#pragma GCC visibility pop
