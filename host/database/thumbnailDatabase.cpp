#include "platform/thumbnailDatabase.h"

#include "host/caller.h"
#include "host/database/thumbnailSchema.h"
#include "host/failure.h"
#include "host/settings.h"
#include "host/systemLog.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace {

constexpr int kBusyTimeoutMilliseconds = 10000;

// A task has 30 thumbnails: what is beyond these was not written by a caller. Together they are 160 MiB.
constexpr int kMaxRowBytes = 16384;
constexpr Json::ArrayIndex kMaxRows = 10000;

/// @return the names of the columns, each with `before` in front, as a list of SQL.
std::string columns(const std::string& before = "") {
    std::string list;
    for (const host::Column& column : host::kColumns) {
        list += (list.empty() ? "" : ", ") + before + column.name;
    }
    return list;
}

/// One row more than a task may have. The order is made of these alone, whatever the file's index leads to.
std::string selectText() {
    return "SELECT * FROM (SELECT thumbnail_id, " + columns() + " FROM thumbnail WHERE task_id = ? LIMIT " +
           std::to_string(kMaxRows + 1) + ") ORDER BY thumbnail_id";
}

// The picture of a thumbnail made twice has been overwritten under the same name: the row tells of the later one and
// keeps its number.
std::string insertText() {
    return "INSERT INTO thumbnail (" + columns() + ") VALUES (" + columns(":") + ") ON CONFLICT DO UPDATE SET (" +
           columns() + ") = (" + columns("excluded.") + ")";
}

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
    sqlite3_limit(database.getHandle(), SQLITE_LIMIT_LENGTH, kMaxRowBytes);
    // A commit has reached the disk when it returns, the journal's removal included.
    database.exec("PRAGMA synchronous = EXTRA");
    return database;
}

/// Takes the steps from one version of the schema to another.
void takeSteps(SQLite::Database& database, int first, int last) {
    for (int version = first; version < last; ++version) {
        database.exec(host::kSchemaSteps.at(static_cast<std::size_t>(version)));
    }
}

/// @return the definitions of the table of thumbnails and of all that belongs to it: indexes and triggers.
std::string schemaOf(SQLite::Database& database) {
    return database
        .execAndGet("SELECT coalesce(group_concat(type || ' ' || name || ' ' || sql, char(10)), '')"
                    " FROM (SELECT * FROM sqlite_schema WHERE sql IS NOT NULL"
                    " AND tbl_name = 'thumbnail' COLLATE NOCASE ORDER BY name)")
        .getString();
}

/// @return the file's version, 0 for a new file. Throws for a file of a later release, and for one whose table is
/// not that version's: a view in its place need not have an end.
int schemaVersion(SQLite::Database& database) {
    const int version = database.execAndGet("PRAGMA user_version").getInt();
    if (version < 0 || version > host::kSchemaVersion) {
        throw std::runtime_error("the database has schema version " + std::to_string(version));
    }
    SQLite::Database model(":memory:", SQLite::OPEN_READWRITE);
    takeSteps(model, 0, version);
    if (schemaOf(database) != schemaOf(model)) {
        throw std::runtime_error("the database's table is not that of version " + std::to_string(version));
    }
    return version;
}

/// Leads a file of any earlier version to the newest one. The caller's transaction holds the write lock.
void migrate(SQLite::Database& database) {
    const int before = schemaVersion(database);
    takeSteps(database, before, host::kSchemaVersion);
    if (before < host::kSchemaVersion) {
        database.exec("PRAGMA user_version = " + std::to_string(host::kSchemaVersion));
    }
}

/// Writes into the newest version. The write lock is taken at once: a transaction that begins by reading cannot wait
/// for it later.
template <typename Write>
void writing(SQLite::Database& database, const Write& write) {
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    migrate(database);
    write();
    transaction.commit();
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
    writing(database, [&] {
        SQLite::Statement insert(database, insertText());
        int place = 0;
        for (const auto& [name, isText] : host::kColumns) {
            if (isText) {
                insert.bind(++place, textOf(*row, name));
            } else {
                insert.bind(++place, integerOf(*row, name));
            }
        }
        insert.exec();
    });
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

/// Reads from the newest version; nothing is read from a new file. A file of an earlier version is migrated first: the
/// caller stores nothing before it has read.
template <typename Read>
void reading(const Read& read) {
    SQLite::Database database = openDatabase();
    std::optional<SQLite::Transaction> reading(std::in_place, database); // one state of the file for all reads
    const int version = schemaVersion(database);
    if (version == 0) {
        return;
    }
    if (version < host::kSchemaVersion) {
        reading.reset();
        writing(database, [] {});
    }
    read(database);
}

Json::Value rowsOf(int taskId) {
    Json::Value rows(Json::arrayValue);
    reading([&](SQLite::Database& database) {
        SQLite::Statement select(database, selectText());
        select.bind(1, taskId);
        while (select.executeStep()) {
            rows.append(rowOf(select));
        }
    });
    if (rows.size() > kMaxRows) {
        throw std::runtime_error("the task has more than " + std::to_string(kMaxRows) + " rows");
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
        host::keepFailure(host::Failure::Kind::database, 0, error.what());
        return -1;
    }
}

} // namespace

std::map<int, int> host::rowCounts() {
    std::map<int, int> counts;
    reading([&](SQLite::Database& database) {
        SQLite::Statement select(database, "SELECT task_id, count(*) FROM thumbnail GROUP BY task_id ORDER BY task_id");
        while (select.executeStep()) {
            counts.emplace_hint(counts.end(), select.getColumn(0).getInt(), select.getColumn(1).getInt());
        }
    });
    return counts;
}

std::vector<host::RecordedPicture> host::allPictures() {
    std::vector<RecordedPicture> pictures;
    reading([&](SQLite::Database& database) {
        SQLite::Statement select(database, "SELECT task_id, file_index, thumbnail_second, thumbnail_filename, file_path"
                                           " FROM thumbnail ORDER BY task_id, file_index, thumbnail_index");
        while (select.executeStep()) {
            pictures.push_back({select.getColumn(0), select.getColumn(1), select.getColumn(2),
                                select.getColumn(3).getString(), select.getColumn(4).getString()});
        }
    });
    return pictures;
}

int host::removeRows(int taskId, const std::vector<int>& thumbnailIds) {
    SQLite::Database database = openDatabase();
    int removed = 0;
    writing(database, [&] {
        SQLite::Statement remove(database, "DELETE FROM thumbnail WHERE task_id = ? AND thumbnail_id = ?");
        for (const int id : thumbnailIds) {
            remove.bind(1, taskId);
            remove.bind(2, id);
            removed += remove.exec();
            remove.reset();
        }
    });
    return removed;
}

int host::removeAllRows(int taskId) {
    SQLite::Database database = openDatabase();
    int removed = 0;
    writing(database, [&] {
        SQLite::Statement remove(database, "DELETE FROM thumbnail WHERE task_id = ?");
        remove.bind(1, taskId);
        removed = remove.exec();
    });
    return removed;
}

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
