#include "server/check.h"

#include "host/caller.h"
#include "server/downloadArea.h"
#include "server/memory.h"
#include "server/previewFile.h"
#include "server/reason.h"
#include "server/settingsFile.h"
#include "server/shownText.h"
#include "server/taskLock.h"
#include "server/trouble.h"
#include "thumbnail/thumbnailGenerator.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace server {
namespace {

using host::Failure;

constexpr const char* kOwnIt = "Let the user who makes the pictures own it";

std::string textOf(int error) {
    return std::generic_category().message(error);
}

/// One thing that is wrong, and what to do.
[[noreturn]] void fail(const std::string& what, const std::string& advice) {
    throw Trouble(what + ". " + advice);
}

// Each function looks at one thing. It returns what was found, or fails.

std::string settings() {
    if (access(kSettingsFile, F_OK) == 0 && access(kSettingsFile, R_OK) != 0) {
        fail(std::string(kSettingsFile) + ": " + textOf(errno),
             "Let the group of the user who makes the pictures read it");
    }
    try {
        (void)tasksAtOnce();
        (void)isPageWanted();
    } catch (const Trouble& trouble) {
        fail(trouble.what(), std::string("Correct it in ") + kSettingsFile);
    }
    return access(kSettingsFile, F_OK) == 0 ? kSettingsFile : std::string("no ") + kSettingsFile;
}

std::string user() {
    struct stat folder = {};
    if (stat(kDownloadLink, &folder) != 0) {
        return "no download area whose owner makes the pictures";
    }
    actAsOwner();
    if (folder.st_uid != geteuid()) {
        fail("the download area is another user's", "Run this as root");
    }
    const struct passwd* owner = getpwuid(folder.st_uid); // NOLINT(concurrency-mt-unsafe): there is one thread
    return owner != nullptr ? owner->pw_name : std::to_string(folder.st_uid);
}

std::string engine() {
    try {
        const host::EngineTasks all = host::allTasks();
        const std::string found =
            "torrents: " + std::to_string(all.torrents.size()) + ", tasks: " + std::to_string(all.tasks.size());
        return all.tasks.empty() && !all.torrents.empty() ? found + "; addTask makes a torrent a task" : found;
    } catch (const std::exception& error) {
        const std::string reason = error.what();
        const bool isRefused = reason.find("HTTP status 401") != std::string::npos;
        const bool isStranger = reason.find("HTTP status 403") != std::string::npos;
        const bool isAnswer = reason.find("HTTP status") == 0 || reason.find("the answer") == 0;
        fail(reason, isRefused    ? "Put the engine's user name and password into VEXODL_RPC_URL"
                     : isStranger ? "Put this machine's address into the engine's rpc-whitelist"
                     : isAnswer   ? "VEXODL_RPC_URL leads to something else; the engine's ends with /transmission/rpc"
                                  : "Start the engine, or put its address into VEXODL_RPC_URL");
    }
}

std::string area() {
    std::error_code error;
    std::string folder = std::filesystem::canonical(kDownloadLink, error);
    if (error) {
        fail(std::string(kDownloadLink) + ": " + error.message(), std::string("Make it: ln -sT AREA ") + kDownloadLink);
    }
    if (!isFolder(folder)) {
        fail(folder + ": " + textOf(ENOTDIR),
             std::string("Let the link lead to the area: ln -sfT AREA ") + kDownloadLink);
    }
    if (access(folder.c_str(), R_OK | W_OK | X_OK) != 0) {
        fail(folder + ": " + textOf(errno), kOwnIt);
    }
    return folder;
}

std::string taskFolders() {
    const std::string folderOfAll = area();
    const std::vector<int> tasks = tasksWithFolder(folderOfAll);
    for (const int task : tasks) {
        const std::string folder = taskFolder(folderOfAll, task);
        for (const std::string& path : {folder, pictureFolder(folder)}) {
            const bool isWritable = access(path.c_str(), R_OK | W_OK | X_OK) == 0;
            if (!isWritable && (path == folder || errno != ENOENT)) {
                fail(path + ": " + textOf(errno), kOwnIt);
            }
        }
    }
    return std::to_string(tasks.size()) + " that can be written";
}

std::string page() {
    if (!isPageWanted()) {
        return "not wanted";
    }
    try {
        checkPreviewPage(area());
    } catch (const ForeignPage& foreign) {
        fail(foreign.what(), "Move it away, or set VEXODL_PAGE=off");
    }
    return isPreviewPageThere(area()) ? area() + "/previews.html" : "none yet";
}

/// A folder as a task's, gone with the object, in which programs may be tried.
class TrialFolder {
public:
    TrialFolder() {
        std::string name = std::filesystem::temp_directory_path() / "makeThumbnails.XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            fail(name + ": " + textOf(errno), "Let it be writable");
        }
        path = name;
        std::filesystem::create_directories(path / "0/pictures");
    }
    ~TrialFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TrialFolder(const TrialFolder&) = delete;
    TrialFolder& operator=(const TrialFolder&) = delete;

    std::filesystem::path path;
};

/// Lets the programs read what is no film and no photo, and one that is: a decoder that cannot confine itself would
/// not even look at it.
std::string programs() {
    constexpr std::string_view kGif(
        "GIF89a\x01\0\x01\0\x80\0\0\0\0\0\xFF\xFF\xFF,\0\0\0\0\x01\0\x01\0\0\x02\x02\x44\x01\0;", 35);
    constexpr int kNotConfined = 5;
    for (const char* path : {"/usr/vexo/bin/vexofstool", "/usr/vexo/sbin/vexouser"}) {
        if (access(path, X_OK) != 0) {
            fail(std::string(path) + ": " + textOf(errno), "Install vexodl-host again");
        }
    }
    const TrialFolder trial;
    const std::string input = trial.path / "0/input";
    const std::string picture = trial.path / "0/pictures/0_0.jpeg";
    ThumbnailGenerator generator(0, /*debug*/ false);
    const auto tryOne = [&](std::string_view bytes, int expected, const std::function<void()>& run) {
        std::ofstream(input, std::ios::trunc) << bytes;
        host::forgetFailure();
        run();
        const Failure failure = host::lastFailure();
        if (failure.status != expected) {
            fail(failure.program + ": " + reasonOf(failure, input),
                 failure.status == kNotConfined ? "Install vexodl-host and what it depends on again; where that does "
                                                  "not help, the kernel lacks seccomp filters"
                                                : "Install vexodl-host and what it depends on again");
        }
    };
    tryOne("no film", 1, [&] { (void)generator.generateThumbnailByFFMPEG(input.c_str(), picture.c_str(), 1); });
    tryOne("no film", 1,
           [&, path = input, reply = Json::Value()]() mutable { (void)generator.getMediaInfo(path, reply); });
    tryOne("\xFF\xD8\xFF no photo", 1, [&] { (void)generator.generateThumbnailByConvertThumb(input, picture); });
    tryOne(kGif, 0, [&] { (void)generator.generateThumbnailByConvertThumb(input, picture); });
    return "they run, and confine themselves";
}

std::string database() {
    try {
        const std::size_t rows = host::allPictures().size();
        (void)host::removeAllRows(-1); // tells whether it can be written; there is no such task
        return std::to_string(rows) + " rows";
    } catch (const std::exception& error) {
        const std::string reason = error.what();
        const bool isOfRights = reason.find("readonly") != std::string::npos ||
                                reason.find("unable to open") != std::string::npos ||
                                reason.find("denied") != std::string::npos;
        fail(reason, isOfRights ? "Let the user who makes the pictures own VEXODL_DATABASE's file and its folder"
                                : "Let VEXODL_DATABASE name another file, or install the release that made this one");
    }
}

std::string state() {
    try {
        (void)TaskLock::takePage();
        return std::to_string(Memory().failedFiles().size()) + " files without all of their pictures";
    } catch (const Trouble& trouble) {
        fail(trouble.what(), "/var/lib/vexodl and what is in it has to belong to the user who makes the pictures");
    }
}

} // namespace

bool check() {
    struct Look {
        const char* what;
        std::string (*look)();
    };
    // Nothing is made before it is known who has to own it.
    constexpr std::array<Look, 9> kLooks = {{{"user", user},
                                             {"settings", settings},
                                             {"programs", programs},
                                             {"download area", area},
                                             {"torrent engine", engine},
                                             {"database", database},
                                             {"memory", state},
                                             {"tasks' folders", taskFolders},
                                             {"page of previews", page}}};
    bool isRight = true;
    for (const auto& [what, look] : kLooks) {
        try {
            const std::string found = look();
            std::printf("ok  %s: %s\n", what, shown(found).c_str());
        } catch (const std::exception& error) {
            isRight = false;
            std::printf("no  %s: %s\n", what, shown(error.what()).c_str());
            if (look == user || look == area) {
                break; // the rest would tell of another user, or lies in the area
            }
        }
        (void)std::fflush(stdout);
    }
    return isRight;
}

} // namespace server
