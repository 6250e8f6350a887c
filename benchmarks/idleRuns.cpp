// What a run of makeMissingThumbnails and the page of previews cost by the number of tasks. For the private root.
//
//   idleRuns TASKS...

#include "benchmarks/median.h"
#include "tests/programs/manyTasks.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr const char* kRun = "/usr/local/bin/makeMissingThumbnails";
constexpr const char* kPage = "/usr/local/bin/makeThumbnails page";
constexpr int kTurns = 5;

struct Cost {
    double processorSeconds;
    double peakMebibytes;
    int requests;
    int plans;
    std::size_t bytes;
    std::size_t lines;
};

double childrenSeconds() {
    rusage usage = {};
    getrusage(RUSAGE_CHILDREN, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

Cost run(ManyTasks& tasks, const std::string& command = kRun) {
    tasks.requests = 0;
    tasks.plans = 0;
    tasks.bytes = 0;
    const double before = childrenSeconds();
    const ProgramRun run = runProgram(words(command));
    if (run.status != 0) {
        std::fprintf(stderr, "%s", run.errors.c_str());
        std::exit(1); // NOLINT(concurrency-mt-unsafe)
    }
    return {childrenSeconds() - before,
            static_cast<double>(run.peakBytes) / 1048576,
            tasks.requests,
            tasks.plans,
            tasks.bytes,
            static_cast<std::size_t>(std::count(run.output.begin(), run.output.end(), '\n'))};
}

/// @return the last of some turns, with the median of their processor time.
Cost medianOf(const std::function<Cost()>& turn) {
    Cost cost{};
    std::vector<double> seconds;
    for (int count = 0; count < kTurns; ++count) {
        cost = turn();
        seconds.push_back(cost.processorSeconds);
    }
    cost.processorSeconds = median(seconds);
    return cost;
}

void print(const char* what, std::size_t count, const Cost& cost) {
    std::printf("| %zu | %s | %.3f | %.0f | %d | %d | %zu | %zu |\n", count, what, cost.processorSeconds,
                cost.peakMebibytes, cost.requests, cost.plans, cost.bytes / 1024, cost.lines);
    (void)std::fflush(stdout);
}

void measure(std::size_t count) {
    for (const char* folder : {"/srv/download", "/srv/database"}) {
        fs::remove_all(folder);
        fs::create_directory(folder);
    }
    shell("convert -size 64x48 xc:red photo.png");
    const std::string photo = readFile("photo.png");
    ManyTasks tasks(static_cast<int>(count), 1, [&](const fs::path& path) { writeFile(path, photo); });
    print("first", count, run(tasks));
    print("idle", count, medianOf([&tasks] { return run(tasks); }));
    fs::remove("/srv/download/42/vexodlthumbnail/0_0.jpeg");
    print("one picture gone", count, run(tasks));
    // Five films and five photos of each task.
    writeFile("/srv/rows", "WITH RECURSIVE n(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM n WHERE n < 30)"
                           " INSERT INTO thumbnail SELECT NULL, task_id, (n + 4) / 5, n % 5, n, n || '.jpeg',"
                           " 'A folder/of some name/' || iif(n > 25, n || '.png', ((n + 4) / 5) || '.mkv'), 0"
                           " FROM n, thumbnail WHERE file_index = 0");
    shell("sqlite3 /srv/database/thumbnail.db </srv/rows");
    print("page", count, medianOf([&tasks] {
              fs::remove("/srv/download/previews.html");
              return run(tasks, kPage);
          }));
}

} // namespace

int main(int argc, char** argv) {
    std::puts("| tasks | run | processor s | MiB | requests | planned | KiB of answers | lines |\n"
              "|---|---|---|---|---|---|---|---|");
    for (int index = 1; index < argc; ++index) {
        measure(std::stoul(argv[index]));
    }
}
