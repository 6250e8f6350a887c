#include "platform/thumbnailDatabase.h"

#include "host/settings.h"
#include "host/systemLog.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

constexpr int kSchemaVersion = 1;
constexpr int kBusyTimeoutMilliseconds = 10000;

constexpr const char* kSchema = R"(
    CREATE TABLE thumbnail (
        thumbnail_id INTEGER PRIMARY KEY,
        task_id INTEGER NOT NULL,
        file_index INTEGER NOT NULL,
        thumbnail_index INTEGER NOT NULL,
        thumbnail_second INTEGER NOT NULL,
        thumbnail_filename TEXT NOT NULL,
        file_path TEXT NOT NULL,
        create_time INTEGER NOT NULL,
        UNIQUE (task_id, file_index, thumbnail_index)
    ) STRICT;
    PRAGMA user_version = 1;)";

constexpr const char* kSelect = R"(
    SELECT thumbnail_id, task_id, file_index, thumbnail_index, thumbnail_second, thumbnail_filename, file_path,
           create_time
    FROM thumbnail WHERE task_id = ? ORDER BY thumbnail_id)";

// The picture of a thumbnail made twice has been overwritten under the same name: the row tells of the later one and
// keeps its number.
constexpr const char* kInsert = R"(
    INSERT INTO thumbnail (task_id, file_index, thumbnail_index, thumbnail_second, thumbnail_filename, file_path,
                           create_time)
    VALUES (?, ?, ?, ?, ?, ?, ?)
    ON CONFLICT (task_id, file_index, thumbnail_index) DO UPDATE SET
        thumbnail_second = excluded.thumbnail_second,
        thumbnail_filename = excluded.thumbnail_filename,
        file_path = excluded.file_path,
        create_time = excluded.create_time)";

/// Makes the folder and an empty file where they are missing: writable for the owner, readable for the group, since
/// names of users' files stand in the rows. What exists keeps the modes that the administrator gave it.
void makeFile(const std::filesystem::path& path) {
    const std::filesystem::path folder = path.parent_path();
    if (!folder.empty() && std::filesystem::create_directories(folder)) {
        std::filesystem::permissions(folder, std::filesystem::perms(0750));
    }
    // Not open() and close(): that would drop the locks that other connections of this process hold on the file.
    if (::mknod(path.c_str(), S_IFREG | 0640, 0) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
}

SQLite::Database openDatabase() {
    const std::string path = host::setting("VEXODL_DATABASE", "/var/lib/vexodl/thumbnail.db");
    makeFile(path);
    SQLite::Database database(path, SQLite::OPEN_READWRITE, kBusyTimeoutMilliseconds);
    // A commit has reached the disk when it returns, the journal's removal included.
    database.exec("PRAGMA synchronous = EXTRA");
    return database;
}

/// @return whether the table is there; it is not in a new file. Throws for a file of a later release.
bool hasSchema(SQLite::Database& database) {
    const int version = database.execAndGet("PRAGMA user_version").getInt();
    if (version != 0 && version != kSchemaVersion) {
        throw std::runtime_error("the database has schema version " + std::to_string(version));
    }
    return version == kSchemaVersion;
}

int integerOf(const Json::Value& row, const char* key) {
    const Json::Value& value = row[key];
    if (value.type() == Json::realValue || !value.isInt()) {
        throw std::invalid_argument(std::string("the row has no integer ") + key);
    }
    return value.asInt();
}

std::string textOf(const Json::Value& row, const char* key) {
    const Json::Value& value = row[key];
    if (!value.isString()) {
        throw std::invalid_argument(std::string("the row has no text ") + key);
    }
    return value.asString();
}

void store(const Json::Value* row) {
    if (row == nullptr || !row->isObject()) {
        throw std::invalid_argument("the row is not an object");
    }
    SQLite::Database database = openDatabase();
    // The write lock is taken at once: a transaction that begins by reading cannot wait for it later.
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    if (!hasSchema(database)) {
        database.exec(kSchema);
    }
    SQLite::Statement insert(database, kInsert);
    int place = 0;
    for (const char* key : {"task_id", "file_index", "thumbnail_index", "thumbnail_second"}) {
        insert.bind(++place, integerOf(*row, key));
    }
    insert.bind(++place, textOf(*row, "thumbnail_filename"));
    insert.bind(++place, textOf(*row, "file_path"));
    insert.bind(++place, integerOf(*row, "create_time"));
    insert.exec();
    transaction.commit();
}

Json::Value rowOf(SQLite::Statement& select) {
    Json::Value row(Json::objectValue);
    for (int place = 0; place < select.getColumnCount(); ++place) {
        const SQLite::Column column = select.getColumn(place);
        if (column.isText()) {
            row[column.getName()] = column.getString();
        } else {
            row[column.getName()] = static_cast<Json::Int64>(column.getInt64());
        }
    }
    return row;
}

Json::Value rowsOf(int taskId) {
    SQLite::Database database = openDatabase();
    Json::Value rows(Json::arrayValue);
    if (hasSchema(database)) {
        SQLite::Statement select(database, kSelect);
        select.bind(1, taskId);
        while (select.executeStep()) {
            rows.append(rowOf(select));
        }
    }
    return rows;
}

/// Keeps exceptions from the caller and tells the administrator of them.
template <typename Operation>
int guarded(Operation operation) {
    try {
        operation();
        return 0;
    } catch (const std::exception& error) {
        host::logFailure("thumbnail database", error.what());
        return -1;
    }
}

} // namespace

int DownloadThumbnailDBGetByTaskId(int taskId, Json::Value* reply) {
    return guarded([&] {
        if (reply == nullptr) {
            throw std::invalid_argument("no place for the rows");
        }
        Json::Value answer(Json::objectValue);
        answer["data"] = rowsOf(taskId);
        reply->swap(answer);
    });
}

int DownloadThumbnailDBCreate(Json::Value* row) {
    return guarded([&] { store(row); });
}
