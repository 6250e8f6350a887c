// What a service's process holds after many runs of generate(): descriptors, children and resident memory. Each run
// makes a frame of a film and a photo anew, which it finds missing; the first runs warm up and do not count.
//
//   manyRuns TASK RUNS DATABASE
//
// Fails when a run fails, or when descriptors or children are left.

#include "thumbnail/thumbnailGenerator.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr int kWarmUps = 10;

struct Holdings {
    long descriptors = 0;
    long children = 0; ///< zombies included
    long residentKibibytes = 0;
};

long parentOf(const fs::path& process) {
    std::string line;
    std::getline(std::ifstream(process / "stat"), line);
    // "number (name) state parent ...", and the name can hold anything.
    const std::size_t end = line.rfind(')');
    return end == std::string::npos ? 0 : std::strtol(line.c_str() + std::min(end + 4, line.size()), nullptr, 10);
}

Holdings look() {
    Holdings found;
    found.descriptors = std::distance(fs::directory_iterator("/proc/self/fd"), {}) - 1; // without this look
    for (const fs::path& process : fs::directory_iterator("/proc")) {
        const bool isProcess = process.filename().string().find_first_not_of("0123456789") == std::string::npos;
        found.children += isProcess && parentOf(process) == getpid() ? 1 : 0;
    }
    std::ifstream statm("/proc/self/statm");
    statm >> found.residentKibibytes >> found.residentKibibytes;
    found.residentKibibytes *= sysconf(_SC_PAGESIZE) / 1024;
    return found;
}

void print(int runs, const Holdings& now) {
    std::printf("| %d | %ld | %ld | %ld |\n", runs, now.descriptors, now.children, now.residentKibibytes);
    (void)std::fflush(stdout);
}

bool run(int task, const std::string& database) {
    SQLite::Database(database, SQLite::OPEN_READWRITE)
        .exec("DELETE FROM thumbnail WHERE thumbnail_filename IN ('0_1.jpeg', '2_0.jpeg')");
    return ThumbnailGenerator(task, false).generate() == 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        (void)std::fputs("usage: manyRuns TASK RUNS DATABASE\n", stderr);
        return 2;
    }
    const int task = static_cast<int>(std::strtol(argv[1], nullptr, 10));
    const int runs = static_cast<int>(std::strtol(argv[2], nullptr, 10));
    bool good = true;
    for (int i = 0; i < kWarmUps && good; ++i) {
        good = run(task, argv[3]);
    }
    std::puts("| runs | descriptors | children | resident KiB |\n|---|---|---|---|");
    const Holdings before = look();
    print(0, before);
    for (int i = 1; i <= runs && good; ++i) {
        good = run(task, argv[3]);
        if (i % std::max(runs / 4, 1) == 0) {
            print(i, look());
        }
    }
    const Holdings after = look();
    return good && after.descriptors == before.descriptors && after.children == before.children ? 0 : 1;
}
