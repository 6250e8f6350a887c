#include "server/memory.h"

#include "server/stateFile.h"
#include "server/trouble.h"

#include <SQLiteCpp/VariadicBind.h>

#include <algorithm>

namespace server {
namespace {

constexpr const char* kMemoryFile = "/var/lib/vexodl/memory.db";
constexpr int kBusyTimeoutMilliseconds = 10000;
constexpr int kVersion = 1; ///< of the tables: a file of another version is emptied

SQLite::Database openMemory() {
    makeStateFile(kMemoryFile); // for its owner alone: names of users' files stand in it
    SQLite::Database database(kMemoryFile, SQLite::OPEN_READWRITE, kBusyTimeoutMilliseconds);
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    if (database.execAndGet("PRAGMA user_version").getInt() != kVersion) {
        database.exec(R"(
                DROP TABLE IF EXISTS task; DROP TABLE IF EXISTS failed; DROP TABLE IF EXISTS ending;
                CREATE TABLE task (task_id INTEGER PRIMARY KEY, hash TEXT NOT NULL, stamp TEXT NOT NULL,
                    have_valid INTEGER NOT NULL, tried_at INTEGER NOT NULL, next_try INTEGER NOT NULL,
                    gone_since INTEGER NOT NULL) STRICT;
                CREATE TABLE failed (task_id INTEGER NOT NULL, file_index INTEGER NOT NULL, path TEXT NOT NULL,
                    size INTEGER NOT NULL, changed INTEGER NOT NULL, bytes INTEGER NOT NULL, reason TEXT NOT NULL,
                    tries INTEGER NOT NULL, tried_at INTEGER NOT NULL, PRIMARY KEY (task_id, file_index)) STRICT;
                CREATE TABLE ending (trouble TEXT NOT NULL, since INTEGER NOT NULL) STRICT;
                PRAGMA user_version = )" +
                      std::to_string(kVersion));
    }
    transaction.commit();
    return database;
}

/// Runs what uses the file, and tells of the file when that fails.
template <typename Use>
auto used(Use use) {
    try {
        return use();
    } catch (const SQLite::Exception& error) {
        throw Trouble(std::string(kMemoryFile) + ": " + error.what());
    }
}

} // namespace

std::time_t FailedFile::nextTry() const {
    constexpr std::time_t kHour = 3600;
    constexpr int kMostDoublings = 5;
    return triedAt + std::min(24 * kHour, kHour << std::clamp(tries - 1, 0, kMostDoublings));
}

Memory::Memory() : database_(used(openMemory)) {}

std::map<int, KnownTask> Memory::tasks() {
    const std::lock_guard guard(mutex_);
    return used([this] {
        std::map<int, KnownTask> tasks;
        SQLite::Statement select(
            database_, "SELECT task_id, hash, stamp, have_valid, tried_at, next_try, gone_since FROM task ORDER BY 1");
        while (select.executeStep()) {
            tasks.emplace_hint(tasks.end(), select.getColumn(0).getInt(),
                               KnownTask{select.getColumn(1), select.getColumn(2), select.getColumn(3),
                                         select.getColumn(4), select.getColumn(5), select.getColumn(6)});
        }
        return tasks;
    });
}

std::vector<FailedFile> Memory::select(std::optional<int> task) {
    const std::lock_guard guard(mutex_);
    return used([&] {
        std::vector<FailedFile> failed;
        SQLite::Statement select(database_,
                                 "SELECT task_id, file_index, path, size, changed, bytes, reason, tries, tried_at"
                                 " FROM failed WHERE ?1 IS NULL OR task_id = ?1 ORDER BY task_id, file_index");
        if (task) {
            select.bind(1, *task);
        }
        while (select.executeStep()) {
            failed.push_back({select.getColumn(0), select.getColumn(1), select.getColumn(2), select.getColumn(3),
                              select.getColumn(4), select.getColumn(5), select.getColumn(6), select.getColumn(7),
                              select.getColumn(8)});
        }
        return failed;
    });
}

std::vector<FailedFile> Memory::failedFiles() {
    return select(std::nullopt);
}

std::map<int, FailedFile> Memory::failedFiles(int task) {
    std::map<int, FailedFile> failed;
    for (FailedFile& file : select(task)) {
        failed.emplace(file.fileIndex, std::move(file));
    }
    return failed;
}

void Memory::keepTask(int task, const KnownTask& known, const std::vector<FailedFile>& failed) {
    const std::lock_guard guard(mutex_);
    used([&] {
        SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
        SQLite::Statement keep(database_, "INSERT OR REPLACE INTO task VALUES (?, ?, ?, ?, ?, ?, ?)");
        SQLite::bind(keep, task, known.hash, known.stamp, known.haveValid, static_cast<std::int64_t>(known.triedAt),
                     static_cast<std::int64_t>(known.nextTry), static_cast<std::int64_t>(known.goneSince));
        keep.exec();
        SQLite::Statement drop(database_, "DELETE FROM failed WHERE task_id = ?");
        drop.bind(1, task);
        drop.exec();
        for (const FailedFile& file : failed) {
            SQLite::Statement add(database_, "INSERT INTO failed VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
            SQLite::bind(add, task, file.fileIndex, file.path, file.size, file.changed, file.bytes, file.reason,
                         file.tries, static_cast<std::int64_t>(file.triedAt));
            add.exec();
        }
        transaction.commit();
    });
}

void Memory::keepGoneSince(int task, std::time_t goneSince) {
    const std::lock_guard guard(mutex_);
    used([&] {
        SQLite::Statement keep(database_, "INSERT INTO task VALUES (?1, '', '', 0, 0, 0, ?2)"
                                          " ON CONFLICT DO UPDATE SET gone_since = ?2");
        SQLite::bind(keep, task, static_cast<std::int64_t>(goneSince));
        keep.exec();
    });
}

void Memory::forget(int task) {
    const std::lock_guard guard(mutex_);
    used([&] {
        SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
        for (const char* text : {"DELETE FROM task WHERE task_id = ?", "DELETE FROM failed WHERE task_id = ?"}) {
            SQLite::Statement drop(database_, text);
            drop.bind(1, task);
            drop.exec();
        }
        transaction.commit();
    });
}

Memory::Ending Memory::lastEnding() {
    const std::lock_guard guard(mutex_);
    return used([this] {
        SQLite::Statement select(database_, "SELECT trouble, since FROM ending");
        return select.executeStep() ? Ending{select.getColumn(0), select.getColumn(1)} : Ending{};
    });
}

void Memory::keepEnding(const std::string& trouble) {
    if (lastEnding().trouble == trouble) {
        return; // an idle run writes nothing
    }
    const std::lock_guard guard(mutex_);
    used([&] {
        SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
        database_.exec("DELETE FROM ending");
        SQLite::Statement keep(database_, "INSERT INTO ending VALUES (?, ?)");
        SQLite::bind(keep, trouble, static_cast<std::int64_t>(std::time(nullptr)));
        keep.exec();
        transaction.commit();
    });
}

} // namespace server
