// A whole run of generate() against the bare commands that it runs, and two runs in two threads against one.
//
//   wholeRun PAIRS FILE...
//
// For the private root (scripts/privateRoot). The files are linked into the directories of the tasks 1 and 2, which an
// engine of our own reports; they lie in the same volume. Each pair is measured in turn. Prints rows of Markdown
// tables: medians in milliseconds and the median of the pairs' ratios.

#include "benchmarks/engineProcess.h"
#include "benchmarks/median.h"
#include "benchmarks/torrentItem.h"
#include "platform/thumbnailDatabase.h"
#include "thumbnail/thumbnailGenerator.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Command = std::vector<std::string>;

const fs::path kDownload = "/srv/download";
constexpr const char* kDatabase = "/var/lib/vexodl/thumbnail.db";
constexpr const char* kDatabaseInMemory = "/tmp/thumbnail.db";

std::string directoryOf(int task) {
    return kDownload / std::to_string(task);
}

/// @return what the engine says of the task.
std::string makeTask(int task, const std::vector<fs::path>& files) {
    std::string list;
    std::string stats;
    fs::create_directories(fs::path(directoryOf(task)) / "Task");
    for (const fs::path& file : files) {
        const std::string name = "Task/" + file.filename().string();
        fs::create_hard_link(file, fs::path(directoryOf(task)) / name);
        const long long length = 60'000'000; // long enough for a picture, whatever it is
        list += fileText(name, length);
        stats += fileStatsText(length);
    }
    return answerText(task, std::move(list), std::move(stats));
}

void forget() {
    fs::remove(kDatabase);
    fs::remove(kDatabaseInMemory);
    for (const int task : {1, 2}) {
        fs::remove_all(directoryOf(task) + "/vexodlthumbnail");
    }
}

void generate(int task) {
    if (ThumbnailGenerator(task, false).generate() != 0) {
        throw std::runtime_error("generate() failed");
    }
}

void generateBoth() {
    std::thread other(generate, 2);
    generate(1);
    other.join();
}

/// The commands that a run of the task has started, in its order, by the rows that it left.
std::vector<Command> commandsOf(int task) {
    Json::Value reply;
    DownloadThumbnailDBGetByTaskId(task, &reply);
    std::vector<Command> commands;
    for (const Json::Value& row : reply["data"]) {
        const std::string source = directoryOf(task) + "/" + row["file_path"].asString();
        const std::string picture = directoryOf(task) + "/vexodlthumbnail/" + row["thumbnail_filename"].asString();
        const int second = row["thumbnail_second"].asInt();
        commands.push_back({"/usr/vexo/bin/vexofstool", "--check-volume-writable", kDownload});
        if (second == 0) {
            commands.push_back({"/usr/vexo/bin/convert-thumb", source, "-thumbnail", "1024x1024>", "-quality", "90",
                                "-strip", "-flatten", "-colorspace", "sRGB", picture});
            continue;
        }
        commands.push_back({"/var/packages/Quellbox/target/bin/vexodlgetduration", "--path", source});
        commands.push_back(
            {"/usr/vexo/bin/ffmpeg", "-ss", std::to_string(second), "-timelimit", "300", "-i", source, "-vf",
             "select=eq(pict_type\\,I),scale='if(gt(a,1),min(1080,iw),-1)':'if(gt(a,1),-1,min(1080,ih))'", "-y",
             "-vframes", "1", "-an", "-qscale:v", "1", "-f", "mjpeg", picture});
    }
    return commands;
}

void start(const Command& command, posix_spawn_file_actions_t& nothing) {
    std::vector<char*> argv;
    for (const std::string& word : command) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    static constexpr std::array<const char*, 3> kEnvironment = {"PATH=/usr/local/bin:/usr/bin:/bin", "LANG=C.UTF-8",
                                                                nullptr};
    pid_t child = 0;
    int status = -1;
    posix_spawn(&child, argv[0], &nothing, nullptr, argv.data(), const_cast<char* const*>(kEnvironment.data()));
    waitpid(child, &status, 0);
    const int wanted = command[1] == "--check-volume-writable" ? 1 : 0;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != wanted) {
        throw std::runtime_error(command[0] + " failed");
    }
}

void runBare(int task, const std::vector<Command>& commands) {
    fs::create_directories(directoryOf(task) + "/vexodlthumbnail");
    posix_spawn_file_actions_t nothing;
    posix_spawn_file_actions_init(&nothing);
    for (const int descriptor : {0, 1, 2}) {
        posix_spawn_file_actions_addopen(&nothing, descriptor, "/dev/null", O_RDWR, 0);
    }
    for (const Command& command : commands) {
        start(command, nothing);
    }
    posix_spawn_file_actions_destroy(&nothing);
}

void runBothBare(const std::vector<Command>& first, const std::vector<Command>& second) {
    std::thread other(runBare, 2, std::cref(second));
    runBare(1, first);
    other.join();
}

/// Runs two ways in turn, each from nothing, and prints their row. @param scale  of the ratio of the first to the
/// second.
template <typename First, typename Second>
void compare(const char* name, int pairs, double scale, const First& first, const Second& second) {
    std::vector<double> ofFirst;
    std::vector<double> ofSecond;
    std::vector<double> ratios;
    for (int pair = 0; pair < pairs; ++pair) {
        for (const bool isFirst : {pair % 2 == 0, pair % 2 != 0}) {
            forget();
            (isFirst ? ofFirst : ofSecond).push_back(isFirst ? secondsOf(first) : secondsOf(second));
        }
        ratios.push_back(scale * ofFirst.back() / ofSecond.back());
    }
    std::printf("| %s | %.0f | %.0f | %.3f |\n", name, median(ofFirst) * 1e3, median(ofSecond) * 1e3, median(ratios));
    (void)std::fflush(stdout);
}

void run(int pairs, const std::vector<fs::path>& files) {
    const EngineProcess engine(kDownload, {{1, makeTask(1, files)}, {2, makeTask(2, files)}});
    forget();
    generateBoth();
    const std::vector<Command> first = commandsOf(1);
    const std::vector<Command> second = commandsOf(2);
    const auto one = [] { generate(1); };
    const auto oneBare = [&first] { runBare(1, first); };
    compare("generate() / the commands that it runs", pairs, 1, one, oneBare);
    setenv("VEXODL_DATABASE", kDatabaseInMemory, 1);
    compare("the same, the rows in memory", pairs, 1, one, oneBare);
    unsetenv("VEXODL_DATABASE");
    compare("throughput of two generate() in two threads / one", pairs, 2, one, generateBoth);
    compare("throughput of the commands of both in two threads / one's", pairs, 2, oneBare,
            [&] { runBothBare(first, second); });
}

} // namespace

int main(int argc, char** argv) try {
    if (argc < 3) {
        (void)std::fputs("usage: wholeRun PAIRS FILE...\n", stderr);
        return 2;
    }
    run(std::stoi(argv[1]), {argv + 2, argv + argc});
    return 0;
} catch (const std::exception& error) {
    (void)std::fprintf(stderr, "wholeRun: %s\n", error.what());
    return 1;
}
