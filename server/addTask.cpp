// Makes a torrent a download task: gives it to the engine, or has the engine move it, into a folder of a new number.

#include "host/caller.h"
#include "server/downloadArea.h"
#include "server/settingsFile.h"
#include "server/shownText.h"
#include "server/trouble.h"
#include "util/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using server::shown;
using server::Trouble;

constexpr int kUsageStatus = 2;
constexpr std::chrono::seconds kLongestMove{10}; ///< that is waited for
constexpr std::chrono::milliseconds kPollInterval{200};

constexpr const char* kUsage = "usage: addTask FILE|MAGNET|HASH\n"
                               "       addTask --help\n";
constexpr const char* kHelp = "\n"
                              "Makes a torrent a download task and prints the task's number: one of a .torrent file, "
                              "of a magnet link, or one that\n"
                              "the torrent engine has, by its info hash; the engine moves the latter's files.\n";

[[noreturn]] void fail(const std::string& path, int error) {
    throw Trouble(path + ": " + std::generic_category().message(error));
}

bool isHash(std::string_view text) {
    constexpr std::size_t kDigits = 40;
    return text.size() == kDigits &&
           std::all_of(text.begin(), text.end(), [](unsigned char character) { return std::isxdigit(character) != 0; });
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char digit) { return std::tolower(digit); });
    return text;
}

bool isMagnet(std::string_view text) {
    constexpr std::string_view kBegin = "magnet:";
    return text.substr(0, kBegin.size()) == kBegin;
}

std::string readTorrent(const std::string& path) {
    constexpr std::uintmax_t kMostBytes = std::uintmax_t{32} << 20U;
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error) {
        fail(path, error.value());
    }
    if (size == 0 || size > kMostBytes) {
        throw Trouble(path + ": no torrent");
    }
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        fail(path, EIO);
    }
    return text;
}

std::optional<int> taskOf(const host::EngineTasks& all, const std::string& hash) {
    const auto found =
        std::find_if(all.tasks.begin(), all.tasks.end(), [&](const auto& task) { return task.second.hash == hash; });
    return found == all.tasks.end() ? std::nullopt : std::optional(found->first);
}

/// Above each number that a folder, a torrent or a row has.
int firstFree(const std::string& area, const host::EngineTasks& all) {
    int highest = 0;
    const std::map<int, int> rows = host::rowCounts();
    const std::vector<int> folders = server::tasksWithFolder(area);
    highest = std::max(highest, rows.empty() ? 0 : rows.rbegin()->first);
    highest = std::max(highest, folders.empty() ? 0 : folders.back());
    highest = std::max(highest, all.tasks.empty() ? 0 : all.tasks.rbegin()->first);
    if (highest == INT_MAX) {
        throw Trouble("no task's number is left");
    }
    return highest + 1;
}

/// A new task's folder, which is removed again unless it is kept.
class NewFolder {
public:
    NewFolder(const std::string& area, int firstNumber) : task(firstNumber) {
        while (mkdir(pathIn(area).c_str(), S_IRWXU) != 0) {
            if (errno != EEXIST || task == INT_MAX) {
                fail(path_, errno);
            }
            ++task; // somebody was faster
        }
        takeRightsOf(area);
    }
    ~NewFolder() {
        if (!isKept_) {
            (void)rmdir(path_.c_str());
        }
    }
    NewFolder(const NewFolder&) = delete;
    NewFolder& operator=(const NewFolder&) = delete;

    void keep() { isKept_ = true; }

    int task;

private:
    const std::string& pathIn(const std::string& area) { return path_ = server::taskFolder(area, task); }

    /// The engine writes to the folder as it does to the area.
    void takeRightsOf(const std::string& area) {
        constexpr mode_t kRights = 07777;
        struct stat status = {};
        const Descriptor folder(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        const bool isOurs =
            folder && stat(area.c_str(), &status) == 0 && fchmod(folder.get(), status.st_mode & kRights) == 0;
        if (!isOurs) {
            const int error = errno;
            (void)rmdir(path_.c_str());
            fail(path_, error);
        }
    }

    std::string path_;
    bool isKept_ = false;
};

/// The engine answers before it begins; a move to another disk may take long.
void waitForMove(const std::string& hash, int task) {
    const auto deadline = std::chrono::steady_clock::now() + kLongestMove;
    while (taskOf(host::allTasks(), hash) != task) {
        if (std::chrono::steady_clock::now() > deadline) {
            (void)std::fprintf(stderr, "addTask: task %d: the torrent engine still moves the torrent's files\n", task);
            return;
        }
        std::this_thread::sleep_for(kPollInterval);
    }
}

/// @param hash  empty, or of a torrent that the engine has. @param contents  else a .torrent file's or a magnet link.
/// @return the task's number.
int addTask(std::string hash, const std::string& contents) {
    const std::string area = server::downloadFolder();
    const host::EngineTasks all = host::allTasks();
    if (contents.empty() && all.torrents.count(hash) == 0) {
        throw Trouble("the torrent engine has no torrent " + hash);
    }
    if (const std::optional<int> task = taskOf(all, hash)) {
        return *task;
    }
    NewFolder folder(area, firstFree(area, all));
    if (!contents.empty()) {
        const host::AddedTorrent added = host::addTorrent(contents, folder.task);
        if (added.isNew) {
            folder.keep();
            return folder.task;
        }
        if (const std::optional<int> task = taskOf(host::allTasks(), added.hash)) { // now: others add as well
            return *task;
        }
        hash = added.hash;
    }
    host::moveTorrent(hash, folder.task);
    folder.keep();
    waitForMove(hash, folder.task);
    return folder.task;
}

} // namespace

int main(int argc, char** argv) try {
    const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    const bool isOne = words.size() == 1;
    if (isOne && words.front() == "--help") {
        std::printf("%s%s", kUsage, kHelp);
        return 0;
    }
    if (!isOne || words.front().empty() || words.front().front() == '-') {
        (void)std::fputs(kUsage, stderr);
        return kUsageStatus;
    }
    server::readSettings();
    std::string hash;
    std::string contents;
    if (isHash(words.front())) {
        hash = lowered(words.front());
    } else {
        contents = isMagnet(words.front()) ? words.front() : readTorrent(words.front());
    }
    server::actAsOwner(); // who starts this may be the only one who can read the file
    std::printf("%d\n", addTask(hash, contents));
    return 0;
} catch (const std::exception& error) {
    (void)std::fprintf(stderr, "addTask: %s\n", shown(error.what()).c_str());
    return 1;
}
