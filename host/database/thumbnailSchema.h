#pragma once

#include <array>

namespace host {

/// What leads a file from version n to version n + 1, beginning with an empty file, which has version 0. Files of every
/// version stand on users' disks: a step is never changed, a new one follows it.
inline constexpr std::array kSchemaSteps = {
    R"(CREATE TABLE thumbnail (
        thumbnail_id INTEGER PRIMARY KEY,
        task_id INTEGER NOT NULL,
        file_index INTEGER NOT NULL,
        thumbnail_index INTEGER NOT NULL,
        thumbnail_second INTEGER NOT NULL,
        thumbnail_filename TEXT NOT NULL,
        file_path TEXT NOT NULL,
        create_time INTEGER NOT NULL,
        UNIQUE (task_id, file_index, thumbnail_index)
    ) STRICT)",
};

/// The version behind the last step, as a file's user_version tells it.
inline constexpr int kSchemaVersion = static_cast<int>(kSchemaSteps.size());

struct Column {
    const char* name;
    bool isText; ///< else an integer
};

/// The columns of the newest version that a caller fills; thumbnail_id is the database's own.
inline constexpr std::array kColumns = {
    Column{"task_id", false},          Column{"file_index", false},        Column{"thumbnail_index", false},
    Column{"thumbnail_second", false}, Column{"thumbnail_filename", true}, Column{"file_path", true},
    Column{"create_time", false},
};

} // namespace host
