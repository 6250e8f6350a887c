// The most memory that getTotalThumbnailNumber() takes with an engine that answers over HTTP, against the text of the
// answer and what jsoncpp makes of it. Each is measured in a process of its own; the columns' unit is MiB. For
// the private root (scripts/privateRoot).

#include "benchmarks/engineProcess.h"
#include "benchmarks/torrentItem.h"
#include "thumbnail/thumbnailGenerator.h"

#include <benchmark/benchmark.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <fstream>

namespace {

/// A line of the process's status, e.g. "VmHWM:", in MiB.
double statusMebibytes(const char* line) {
    std::ifstream file("/proc/self/status");
    std::string word;
    double kibibytes = 0;
    while (file >> word) {
        if (word == line && file >> kibibytes) {
            return kibibytes / 1024;
        }
    }
    return 0;
}

/// How far the resident memory rises above where it was, in MiB; 0 when the work failed.
template <typename Work>
double peakOf(const Work& work) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        return 0;
    }
    const pid_t child = fork();
    if (child == 0) {
        const double before = statusMebibytes("VmRSS:");
        const bool good = work();
        const double peak = good ? statusMebibytes("VmHWM:") - before : 0;
        _exit(write(ends[1], &peak, sizeof peak) == sizeof peak ? 0 : 1);
    }
    double peak = 0;
    const bool told = read(ends[0], &peak, sizeof peak) == sizeof peak;
    close(ends[0]);
    close(ends[1]);
    waitpid(child, nullptr, 0);
    return told ? peak : 0;
}

void planMemory(benchmark::State& state) {
    const std::string answer = answerOfFiles(1, static_cast<int>(state.range(0)));
    const EngineProcess engine("/srv/download", {{1, answer}});
    double whole = 0;
    double reply = 0;
    while (state.KeepRunning()) {
        reply = peakOf([&answer] {
            const std::string body(answer.data(), answer.size());
            return parsed(body).isObject();
        });
        whole = peakOf([] { return ThumbnailGenerator(1, false).getTotalThumbnailNumber() > 0; });
    }
    if (reply <= 0 || whole <= 0) {
        state.SkipWithError("no figure");
    }
    state.counters["body"] = static_cast<double>(answer.size()) / (1024 * 1024);
    state.counters["body+reply"] = reply;
    state.counters["plan"] = whole;
    state.counters["plan/(body+reply)"] = whole / reply;
}

} // namespace

BENCHMARK(planMemory)->ArgName("files")->Arg(10000)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
