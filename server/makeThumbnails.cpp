// Counts or makes the thumbnails of one download task and shows the progress, or forgets the task.

#include "server/downloadArea.h"
#include "server/memory.h"
#include "server/settingsFile.h"
#include "server/shownLog.h"
#include "server/shownText.h"
#include "server/taskLock.h"
#include "server/taskRows.h"
#include "thumbnail/thumbnailGenerator.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr int kUsageStatus = 2;
constexpr auto kPollInterval = std::chrono::milliseconds(200);
constexpr std::size_t kBarWidth = 40;

struct Command {
    bool debug = false;
    std::string_view what;
    int task = 0;
};

using server::shown;
using server::shownTime;

std::optional<Command> parseCommand(std::vector<std::string_view> words) {
    Command command;
    if (!words.empty() && words.front() == "--debug") {
        command.debug = true;
        words.erase(words.begin());
    }
    if (words.size() != 2 || (words[0] != "count" && words[0] != "generate" && words[0] != "forget")) {
        return std::nullopt;
    }
    command.what = words[0];
    const std::optional<int> task = server::taskNumber(words[1]);
    command.task = task.value_or(0);
    return task ? std::optional(command) : std::nullopt;
}

int fail(int task, const char* what) {
    (void)std::fprintf(stderr, "makeThumbnails: task %d: %s\n", task, what);
    return 1;
}

/// Shows N of M: a bar on a terminal, a line per change elsewhere.
class Progress {
public:
    explicit Progress(std::size_t total) : total_(total) {}

    void show(std::size_t done) {
        if (done == shown_) {
            return;
        }
        shown_ = done;
        if (isTerminal_) {
            const std::size_t filled = total_ == 0 ? kBarWidth : done * kBarWidth / total_;
            const std::string bar = std::string(filled, '#') + std::string(kBarWidth - filled, '-');
            std::printf("\r[%s] %zu of %zu", bar.c_str(), done, total_);
        } else {
            std::printf("%zu of %zu\n", done, total_);
        }
        (void)std::fflush(stdout);
    }

    void end() const {
        if (isTerminal_ && shown_ != kNothing) {
            std::puts("");
        }
    }

private:
    static constexpr std::size_t kNothing = SIZE_MAX;

    std::size_t total_;
    std::size_t shown_ = kNothing;
    bool isTerminal_ = isatty(STDOUT_FILENO) == 1;
};

void printTable(const std::vector<Thumbnail>& rows, const std::vector<Thumbnail>& plan) {
    std::printf("%6s  %6s  %-12s  %-19s  %s\n", "id", "second", "picture", "made", "file");
    for (const Thumbnail& row : rows) {
        const auto source = std::find_if(plan.begin(), plan.end(),
                                         [&row](const Thumbnail& p) { return p.file_index == row.file_index; });
        const std::string file = source == plan.end() ? std::to_string(row.file_index) : source->file_path;
        std::printf("%6d  %6d  %-12s  %-19s  %s\n", row.thumbnail_id, row.thumbnail_second,
                    shown(row.thumbnail_filename).c_str(), shownTime(row.create_time).c_str(), shown(file).c_str());
    }
}

void printMissing(const std::vector<Thumbnail>& missing) {
    for (const Thumbnail& thumbnail : missing) {
        (void)std::fprintf(stderr, "missing: %d_%d of %s\n", thumbnail.file_index, thumbnail.thumbnail_index,
                           shown(thumbnail.file_path).c_str());
    }
}

int count(const Command& command) {
    const int number = ThumbnailGenerator(command.task, command.debug).getTotalThumbnailNumber();
    if (number < 0) {
        return fail(command.task, "no file list; does the torrent engine run and have the task?");
    }
    std::printf("%d\n", number);
    return 0;
}

/// Runs generate() in a thread of its own, with an object of its own, and reads the database meanwhile.
int generateWithProgress(const Command& command, ThumbnailGenerator& planner, const std::vector<Thumbnail>& plan) {
    auto result = std::async(std::launch::async,
                             [&command] { return ThumbnailGenerator(command.task, command.debug).generate(); });
    Progress progress(plan.size());
    bool running = true;
    while (running) {
        running = result.wait_for(kPollInterval) != std::future_status::ready;
        std::vector<Thumbnail> missing = plan;
        if (planner.filterExistThumbnail(missing) == 0) {
            progress.show(plan.size() - missing.size());
        }
    }
    progress.end();
    return result.get();
}

int generate(const Command& command) {
    ThumbnailGenerator planner(command.task, command.debug);
    std::vector<Thumbnail> plan;
    if (planner.getTaskFileList(command.task) < 0 || planner.getThumbnailList(plan) < 0) {
        return fail(command.task, "no file list; does the torrent engine run and have the task?");
    }
    const int result = generateWithProgress(command, planner, plan);
    std::vector<Thumbnail> rows;
    std::vector<Thumbnail> missing = plan;
    if (planner.getExistThumbnailList(rows) < 0 || planner.filterExistThumbnail(missing) < 0) {
        return fail(command.task, "the thumbnail database cannot be read");
    }
    printTable(rows, plan);
    printMissing(missing);
    if (!missing.empty()) {
        return fail(command.task, "not all thumbnails could be made; the next run tries the missing ones again");
    }
    return result < 0 ? fail(command.task, "the run failed; --debug tells where") : 0;
}

/// Removes what is recorded of a task, its pictures and what makeMissingThumbnails remembers of it. The torrent's files
/// stay, and so does what no row tells of.
int forget(const Command& command) {
    const auto lock = server::TaskLock::take(command.task, server::TaskLock::WhenHeld::wait);
    const std::string folder = server::taskFolder(server::downloadFolder(), command.task);
    const server::Removed removed = server::removeAll(command.task, folder);
    server::Memory().forget(command.task);
    std::printf("task %d: %d rows and %d pictures removed\n", command.task, removed.rows, removed.pictures);
    return removed.others == 0 ? 0 : fail(command.task, "the folder of the pictures has other files and was left");
}

} // namespace

int main(int argc, char** argv) try {
    server::readSettings();
    const std::optional<Command> command = parseCommand({argv + std::min(argc, 1), argv + argc});
    if (!command) {
        (void)std::fputs("usage: makeThumbnails [--debug] count|generate|forget TASK\n", stderr);
        return kUsageStatus;
    }
    if (command->debug) {
        showLog("makeThumbnails");
    }
    if (command->what == "forget") {
        return forget(*command);
    }
    return command->what == "generate" ? generate(*command) : count(*command);
} catch (const std::exception& error) {
    (void)std::fprintf(stderr, "makeThumbnails: %s\n", shown(error.what()).c_str());
    return 1;
}
