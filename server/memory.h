#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace server {

/// A file of a task that has no picture, or not all of them, though it was tried.
struct FailedFile {
    int task = 0;
    int fileIndex = 0;
    std::string path; ///< relative to the task's folder; foreign text
    std::int64_t size = 0;
    std::int64_t changed = 0; ///< time of the file, nanoseconds
    std::int64_t bytes = 0;   ///< that were downloaded
    std::string reason;       ///< foreign text
    int tries = 0;            ///< of the file as it is
    std::time_t triedAt = 0;

    /// When it is tried again as it is: after an hour, then two, four ... at most a day.
    [[nodiscard]] std::time_t nextTry() const;
};

/// A task as it was after it had been worked on.
struct KnownTask {
    std::string hash; ///< of its torrent
    std::string stamp;
    std::int64_t haveValid = 0;
    std::time_t triedAt = 0;
    std::time_t nextTry = 0;   ///< of its failed files, 0 without one
    std::time_t goneSince = 0; ///< its torrent was not there, its folder held pictures only; 0 where that is not so
};

/// What one run tells the next: a file that may be lost, since it says only what need not be done.
///
/// The file /var/lib/vexodl/memory.db. Safe from any thread; all functions throw Trouble where it cannot be used.
class Memory {
public:
    Memory();

    std::map<int, KnownTask> tasks();
    std::vector<FailedFile> failedFiles();
    std::map<int, FailedFile> failedFiles(int task);

    void keepTask(int task, const KnownTask& known, const std::vector<FailedFile>& failed);
    void keepGoneSince(int task, std::time_t goneSince);
    void forget(int task);

    /// How the last run ended; empty when nothing troubled it.
    struct Ending {
        std::string trouble;
        std::time_t since = 0;
    };
    Ending lastEnding();
    void keepEnding(const std::string& trouble);

private:
    std::vector<FailedFile> select(std::optional<int> task);

    std::mutex mutex_;
    SQLite::Database database_;
};

} // namespace server
