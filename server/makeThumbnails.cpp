// Counts, makes, lists or forgets the thumbnails of one download task, checks the server, writes the page of previews.

#include "host/caller.h"
#include "server/check.h"
#include "server/downloadArea.h"
#include "server/memory.h"
#include "server/previewFile.h"
#include "server/reason.h"
#include "server/settingsFile.h"
#include "server/shownLog.h"
#include "server/shownText.h"
#include "server/taskLock.h"
#include "server/taskRows.h"
#include "thumbnail/thumbnailGenerator.h"
#include "util/printableText.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using server::shown;
using server::shownTime;

constexpr int kUsageStatus = 2;
constexpr std::size_t kBarWidth = 20;

constexpr const char* kUsage = "usage: makeThumbnails [--debug] count|generate|rows|forget TASK\n"
                               "       makeThumbnails [--debug] check|page\n"
                               "       makeThumbnails --help\n";
constexpr const char* kHelp = "\n"
                              "count     prints how many pictures the task should have\n"
                              "generate  makes those that are missing\n"
                              "rows      lists those that are recorded\n"
                              "forget    removes the task's rows and pictures\n"
                              "check     tells what is right and wrong with this server, and what to do\n"
                              "page      writes previews.html into the download area\n"
                              "--debug   shows the library's messages, too\n";

struct Command {
    bool debug = false;
    std::string_view what;
    int task = 0;
};

std::optional<Command> parseCommand(std::vector<std::string_view> words) {
    constexpr std::array<std::string_view, 4> kOfTask = {"count", "generate", "rows", "forget"};
    Command command;
    if (!words.empty() && words.front() == "--debug") {
        command.debug = true;
        words.erase(words.begin());
    }
    if (words.empty()) {
        return std::nullopt;
    }
    command.what = words[0];
    if (words.size() == 1 && (command.what == "check" || command.what == "page")) {
        return command;
    }
    const bool isOfTask = std::find(kOfTask.begin(), kOfTask.end(), command.what) != kOfTask.end();
    const std::optional<int> task = isOfTask && words.size() == 2 ? server::taskNumber(words[1]) : std::nullopt;
    command.task = task.value_or(0);
    return task ? std::optional(command) : std::nullopt;
}

void tell(const std::string& what) {
    (void)std::fprintf(stderr, "makeThumbnails: %s\n", shown(what).c_str());
}

int fail(int task, const std::string& what) {
    tell("task " + std::to_string(task) + ": " + what);
    return 1;
}

/// Shows N of M and the file that is worked on: a bar on a terminal, a line per change elsewhere.
class Progress {
public:
    explicit Progress(std::size_t total) : total_(total) {}

    void show(std::size_t done, const std::string& file) {
        std::string text = std::to_string(done) + " of " + std::to_string(total_);
        constexpr std::size_t kLongestName = 40; // on a terminal's one line, beside the bar
        text += file.empty() ? "" : ": " + (isTerminal_ ? printable(file, kLongestName) : shown(file));
        if (text == shown_) {
            return;
        }
        shown_ = text;
        if (isTerminal_) {
            const std::size_t filled = total_ == 0 ? kBarWidth : done * kBarWidth / total_;
            const std::string bar = std::string(filled, '#') + std::string(kBarWidth - filled, '-');
            std::printf("\r\x1B[K[%s] %s", bar.c_str(), text.c_str());
        } else {
            std::puts(text.c_str());
        }
        (void)std::fflush(stdout);
    }

    void end(std::size_t done) {
        show(done, "");
        if (isTerminal_) {
            std::puts("");
        }
    }

private:
    std::size_t total_;
    std::string shown_;
    bool isTerminal_ = isatty(STDOUT_FILENO) == 1;
};

/// Fails when the database cannot be read.
int printRows(ThumbnailGenerator& generator) {
    std::vector<Thumbnail> rows;
    if (generator.getExistThumbnailList(rows) < 0) {
        return fail(generator.taskId, server::reasonOf(host::lastFailure()));
    }
    std::map<int, std::string> files;
    for (const server::Row& row : server::rowsOf(generator.taskId)) {
        files[row.id] = row.source;
    }
    std::printf("%6s  %6s  %-12s  %-19s  %s\n", "id", "second", "picture", "made", "file");
    for (const Thumbnail& row : rows) {
        std::printf("%6d  %6d  %-12s  %-19s  %s\n", row.thumbnail_id, row.thumbnail_second,
                    shown(row.thumbnail_filename).c_str(), shownTime(row.create_time).c_str(),
                    shown(files[row.thumbnail_id]).c_str());
    }
    return 0;
}

/// The page shows what was made or removed; that it could not be written undoes neither.
void renewPage() try {
    if (server::isPageWanted()) {
        (void)server::writePreviewPage(server::downloadFolder());
    }
} catch (const std::exception& error) {
    tell(error.what());
}

int count(const Command& command) {
    const int number = ThumbnailGenerator(command.task, command.debug).getTotalThumbnailNumber();
    if (number < 0) {
        return fail(command.task, server::whyNoFiles(command.task));
    }
    std::printf("%d\n", number);
    return 0;
}

/// Makes one picture after the other, to tell of each why it could not be made.
int generate(const Command& command) {
    ThumbnailGenerator generator(command.task, command.debug);
    std::vector<Thumbnail> plan;
    if (generator.getTaskFileList(command.task) < 0 || generator.getThumbnailList(plan) < 0) {
        return fail(command.task, server::whyNoFiles(command.task));
    }
    std::vector<Thumbnail> missing = plan;
    if (generator.filterExistThumbnail(missing) < 0) {
        return fail(command.task, server::reasonOf(host::lastFailure()));
    }
    const std::string folder = missing.empty() ? "" : server::taskFolder(server::downloadFolder(), command.task) + '/';
    std::size_t made = plan.size() - missing.size();
    Progress progress(plan.size());
    std::vector<std::string> failed;
    for (const Thumbnail& picture : missing) {
        progress.show(made, picture.file_path);
        host::forgetFailure();
        std::vector<Thumbnail> one = {picture};
        if (generator.generateThumbnailByList(one) == 0) {
            ++made;
            continue;
        }
        const host::Failure failure = host::lastFailure();
        const bool isAwaited =
            failure.kind == host::Failure::Kind::none && picture.media_type == VEXODL_MEDIA_TYPE_PHOTO;
        const std::string reason =
            isAwaited ? "a photo is made when it is complete" : server::reasonOf(failure, folder + picture.file_path);
        failed.push_back("missing: " + std::to_string(picture.file_index) + '_' +
                         std::to_string(picture.thumbnail_index) + " of " + shown(picture.file_path) + ": " +
                         shown(reason));
    }
    progress.end(made);
    const int listed = printRows(generator);
    for (const std::string& line : failed) {
        (void)std::fprintf(stderr, "%s\n", line.c_str());
    }
    if (!missing.empty()) {
        renewPage();
    }
    return failed.empty() ? listed : fail(command.task, "not all thumbnails could be made; the next run tries again");
}

/// Removes what is recorded of a task, its pictures and what makeMissingThumbnails remembers of it. The torrent's files
/// stay, and so does what no row tells of.
int forget(const Command& command) {
    const std::string area = server::downloadFolder();
    const auto lock = server::TaskLock::take(command.task, server::TaskLock::WhenHeld::wait);
    const server::Removed removed = server::removeAll(command.task, server::taskFolder(area, command.task));
    server::Memory().forget(command.task);
    std::printf("task %d: %d rows and %d pictures removed\n", command.task, removed.rows, removed.pictures);
    renewPage();
    return removed.others == 0 ? 0 : fail(command.task, "the folder of the pictures has other files and was left");
}

int page() {
    std::puts(server::writePreviewPage(server::downloadFolder()).c_str());
    return 0;
}

int run(const Command& command) {
    if (command.what == "check") {
        return server::check() ? 0 : 1;
    }
    server::actAsOwner();
    if (command.what == "page") {
        return page();
    }
    if (command.what == "count") {
        return count(command);
    }
    if (command.what == "generate") {
        return generate(command);
    }
    if (command.what == "forget") {
        return forget(command);
    }
    ThumbnailGenerator generator(command.task, command.debug);
    return printRows(generator);
}

} // namespace

int main(int argc, char** argv) try {
    const std::vector<std::string_view> words(argv + std::min(argc, 1), argv + argc);
    if (words.size() == 1 && words.front() == "--help") {
        std::printf("%s%s", kUsage, kHelp);
        return 0;
    }
    const std::optional<Command> command = parseCommand(words);
    if (!command) {
        (void)std::fputs(kUsage, stderr);
        return kUsageStatus;
    }
    server::readSettings();
    if (command->debug) {
        showLog("makeThumbnails");
    }
    return run(*command);
} catch (const std::exception& error) {
    tell(error.what());
    return 1;
}
