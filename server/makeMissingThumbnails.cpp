// Makes the pictures that download tasks lack: looks at all tasks, works on those that have changed since the last run,
// and forgets neither what failed nor why.

#include "host/caller.h"
#include "server/downloadArea.h"
#include "server/memory.h"
#include "server/previewFile.h"
#include "server/settingsFile.h"
#include "server/shownText.h"
#include "server/taskRows.h"
#include "server/taskRun.h"
#include "server/trouble.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace {

using server::FailedFile;
using server::KnownTask;
using server::Memory;
using server::SeenTask;
using server::shown;
using server::shownTime;
using server::Trouble;

constexpr int kTroubleStatus = 1;
constexpr int kUsageStatus = 2;

constexpr const char* kTorrentDone = "/var/lib/vexodl/torrentDone"; ///< the engine's script makes it
constexpr const char* kTwoTorrents = "two torrents";                ///< stamp of a task that has no pictures for that
constexpr std::time_t kBetweenSweepLooks = 3600;

constexpr const char* kUsage = "usage: makeMissingThumbnails [TASK...]\n"
                               "       makeMissingThumbnails --status\n"
                               "       makeMissingThumbnails --help\n";
constexpr const char* kHelp =
    "\n"
    "Makes the pictures that download tasks lack: of the tasks of these numbers, or of all that have changed. What\n"
    "cannot be shown is tried again when it changes, after an hour, then after two, four ... at most a day; with TASK "
    "at\n"
    "once. --status tells what failed and why.\n";

void tell(const std::string& what) {
    (void)std::fprintf(stderr, "makeMissingThumbnails: %s\n", shown(what).c_str());
}

/// What all runs share, and the engine's and the database's view of all tasks at its beginning.
class Run {
public:
    explicit Run(std::string downloadFolder) : downloadFolder_(std::move(downloadFolder)) {}

    /// @param wanted  the tasks to work on; of all tasks those that need it when there is none.
    void overTasks(const std::vector<int>& wanted) {
        look();
        std::vector<SeenTask> due = dueTasks(wanted);
        // Who waited longest goes first.
        std::stable_sort(due.begin(), due.end(),
                         [](const SeenTask& a, const SeenTask& b) { return a.known.triedAt < b.known.triedAt; });
        workOn(due);
    }

    /// Writes the page of previews where this run has changed something, or where there are tasks and no page. An area
    /// without tasks may be a disk that is not mounted.
    void writePage() {
        const bool isMissing = hasTasks_ && !server::isPreviewPageThere(downloadFolder_);
        if (!server::isPageWanted() || !(hasChanged_ || isMissing)) {
            return;
        }
        try {
            (void)server::writePreviewPage(downloadFolder_);
        } catch (const server::ForeignPage& foreign) {
            tell(foreign.what());
        }
    }

    Memory& memory() { return memory_; }

private:
    void look() {
        try {
            engine_ = host::allTasks();
        } catch (const std::exception& error) {
            throw Trouble(std::string("torrent engine: ") + error.what());
        }
        try {
            rows_ = host::rowCounts();
        } catch (const std::exception& error) {
            throw Trouble(std::string("thumbnail database: ") + error.what());
        }
        known_ = memory_.tasks();
    }

    std::vector<SeenTask> dueTasks(const std::vector<int>& wanted) {
        std::vector<SeenTask> due;
        const std::time_t now = std::time(nullptr);
        const std::vector<int> all = wanted.empty() ? server::tasksWithFolder(downloadFolder_) : wanted;
        hasTasks_ = !all.empty();
        for (const int task : all) {
            SeenTask seen;
            seen.task = task;
            seen.folder = server::taskFolder(downloadFolder_, task);
            seen.wanted = !wanted.empty();
            if (const auto known = known_.find(task); known != known_.end()) {
                seen.known = known->second;
            }
            const auto torrent = engine_.tasks.find(task);
            if (torrent == engine_.tasks.end()) {
                lookAtGone(seen, now);
                continue;
            }
            seen.torrent = torrent->second;
            if (isAmbiguous(seen)) {
                continue;
            }
            seen.look = server::lookAt(seen.folder);
            if (server::isDue(seen, rowsOf(task), now)) {
                due.push_back(std::move(seen));
            }
        }
        if (wanted.empty()) {
            forgetGone(all);
        }
        return due;
    }

    int rowsOf(int task) const {
        const auto rows = rows_.find(task);
        return rows == rows_.end() ? 0 : rows->second;
    }

    bool isAmbiguous(const SeenTask& seen) {
        if (seen.torrent.torrents == 1) {
            return false;
        }
        if (seen.known.stamp != kTwoTorrents) {
            std::printf("task %d: no pictures while two torrents download into %s\n", seen.task,
                        shown(seen.folder).c_str());
            KnownTask known = seen.known;
            known.stamp = kTwoTorrents;
            hasChanged_ = true;
            memory_.keepTask(seen.task, known, {});
        }
        return true;
    }

    /// A folder without a torrent: when nothing but our pictures was in it an hour ago and is now, it is swept. An
    /// engine without any torrent may have lost its list.
    void lookAtGone(const SeenTask& seen, std::time_t now) {
        if (seen.wanted) {
            throw Trouble("task " + std::to_string(seen.task) + ": the torrent engine has no torrent for " +
                          seen.folder);
        }
        const bool isGone =
            !engine_.torrents.empty() && rowsOf(seen.task) > 0 && server::holdsOnlyPictures(seen.task, seen.folder);
        const std::time_t since = seen.known.goneSince;
        if (isGone && since != 0 && now - since >= kBetweenSweepLooks) {
            server::sweepTask(seen.task, seen.folder, memory_);
            hasChanged_ = true;
        } else if (isGone != (since != 0) || now < since) {
            hasChanged_ = true;
            memory_.keepGoneSince(seen.task, isGone ? now : 0);
        }
    }

    /// A task that has neither a torrent nor a folder is not remembered.
    void forgetGone(const std::vector<int>& tasks) {
        for (const auto& [task, known] : known_) {
            if (!engine_.torrents.empty() && engine_.tasks.count(task) == 0 &&
                !std::binary_search(tasks.begin(), tasks.end(), task)) {
                memory_.forget(task);
                hasChanged_ = true;
            }
        }
    }

    void workOn(const std::vector<SeenTask>& tasks) {
        hasChanged_ = hasChanged_ || !tasks.empty();
        std::atomic<std::size_t> next = 0;
        std::mutex mutex;
        std::exception_ptr trouble;
        const auto work = [&] {
            for (std::size_t index = next++; index < tasks.size(); index = next++) {
                try {
                    server::runTask(tasks[index], memory_);
                } catch (const std::exception&) {
                    const std::lock_guard guard(mutex);
                    trouble = trouble ? trouble : std::current_exception();
                    next = tasks.size(); // what troubles one task would trouble all
                }
            }
        };
        std::vector<std::thread> others;
        for (std::size_t count = std::min(server::tasksAtOnce(), tasks.size()); count > 1; --count) {
            others.emplace_back(work);
        }
        work();
        for (std::thread& other : others) {
            other.join();
        }
        if (trouble) {
            std::rethrow_exception(trouble);
        }
    }

    std::string downloadFolder_;
    Memory memory_;
    host::EngineTasks engine_;
    std::map<int, int> rows_; ///< how many each task has
    std::map<int, KnownTask> known_;
    bool hasTasks_ = false;
    bool hasChanged_ = false;
};

/// Takes the engine's word that a torrent has finished, before the look that shall find it.
bool takeTorrentDone() {
    if (unlink(kTorrentDone) == 0) {
        return true;
    }
    if (errno != ENOENT) {
        throw Trouble(std::string(kTorrentDone) + ": " + std::generic_category().message(errno));
    }
    return false;
}

void runAll(Run& run) {
    (void)takeTorrentDone();
    do {
        run.overTasks({});
    } while (takeTorrentDone());
}

/// The task of the folder that the engine tells of, when it calls this as its script for torrents that have finished.
std::optional<int> finishedTask(const std::string& downloadFolder, const char* torrentFolder) {
    std::string_view text(torrentFolder);
    while (!text.empty() && text.back() == '/') {
        text.remove_suffix(1);
    }
    const std::filesystem::path folder(text);
    std::error_code ignored;
    const std::optional<int> task = server::taskNumber(folder.filename().native());
    return task && std::filesystem::equivalent(folder.parent_path(), downloadFolder, ignored) ? task : std::nullopt;
}

int status() {
    Memory memory;
    const Memory::Ending ending = memory.lastEnding();
    const std::vector<FailedFile> failed = memory.failedFiles();
    if (ending.since != 0) {
        std::printf(ending.trouble.empty() ? "no trouble since %s\n" : "in trouble since %s: %s\n",
                    shownTime(ending.since).c_str(), shown(ending.trouble).c_str());
    }
    std::printf("%zu tasks, %zu files without all of their pictures\n", memory.tasks().size(), failed.size());
    for (const FailedFile& file : failed) {
        std::printf("task %d: %s: %s (tried %s, again %s)\n", file.task, shown(file.path).c_str(),
                    shown(file.reason).c_str(), shownTime(file.triedAt).c_str(), shownTime(file.nextTry()).c_str());
    }
    return 0;
}

int refuse(const std::string& what) {
    tell(what);
    return kUsageStatus;
}

int run(const std::vector<std::string_view>& words) {
    std::vector<int> wanted;
    const std::string downloadFolder = server::downloadFolder();
    for (const std::string_view word : words) {
        const std::optional<int> task = server::taskNumber(word);
        if (!task) {
            return refuse(std::string(word) + ": no task's number");
        }
        const std::string folder = server::taskFolder(downloadFolder, *task);
        if (!server::isFolder(folder)) {
            return refuse("task " + std::to_string(*task) + ": no folder " + folder);
        }
        wanted.push_back(*task);
    }
    const char* torrentFolder = std::getenv("TR_TORRENT_DIR"); // NOLINT(concurrency-mt-unsafe): there is one thread yet
    if (wanted.empty() && torrentFolder != nullptr && *torrentFolder != '\0') {
        const std::optional<int> task = finishedTask(downloadFolder, torrentFolder);
        if (!task) {
            return 0; // a torrent that is no task
        }
        wanted.push_back(*task);
    }
    Run run(downloadFolder);
    try {
        if (wanted.empty()) {
            runAll(run);
        } else {
            run.overTasks(wanted);
        }
        run.writePage();
    } catch (const Trouble& trouble) {
        run.memory().keepEnding(trouble.what());
        throw;
    }
    run.memory().keepEnding("");
    return 0;
}

} // namespace

int main(int argc, char** argv) try {
    const std::vector<std::string_view> words(argv + std::min(argc, 1), argv + argc);
    (void)std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    server::readSettings();
    const std::string_view first = words.empty() ? std::string_view() : words.front();
    if (first == "--help") {
        std::printf("%s%s", kUsage, kHelp);
        return 0;
    }
    const bool isStatus = first == "--status" && words.size() == 1;
    if (first.substr(0, 1) == "-" && !isStatus) {
        (void)std::fputs(kUsage, stderr);
        return kUsageStatus;
    }
    server::actAsOwner();
    if (isStatus) {
        return status();
    }
    return run(words);
} catch (const std::exception& error) {
    tell(error.what());
    return kTroubleStatus;
}
