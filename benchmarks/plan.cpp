// What getTotalThumbnailNumber() takes once the engine's answer is there as JSON, beside jsoncpp's parse of that
// answer's text, in turn, in time on a processor. The time shown is that of the library. With usedHeap 1 the memory is
// what the plans before have left, in pieces; with 0 it is given back first, as if the process had just begun.

#include "benchmarks/median.h"
#include "benchmarks/torrentItem.h"
#include "platform/torrentEngine.h"
#include "thumbnail/thumbnailGenerator.h"

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <vector>

namespace {

Json::Value supplied; // the next answer

void plan(benchmark::State& state) {
    const std::string answer = answerOfFiles(1, static_cast<int>(state.range(0)));
    std::vector<double> parse;
    std::vector<double> plan;
    while (state.KeepRunning()) {
        if (state.range(1) == 0) {
            malloc_trim(0);
        }
        parse.push_back(processorSecondsOf([&answer] { supplied = parsed(answer); }));
        ThumbnailGenerator generator(1, false);
        int number = 0;
        plan.push_back(processorSecondsOf([&] { number = generator.getTotalThumbnailNumber(); }));
        if (number <= 0) {
            state.SkipWithError("no plan");
            return;
        }
        state.SetIterationTime(plan.back());
    }
    const double seconds = median(plan);
    state.counters["parse_us"] = median(parse) * 1e6;
    state.counters["plan_us"] = seconds * 1e6;
    state.counters["plan/parse"] = seconds / median(parse);
    state.counters["plan_ns/file"] = seconds * 1e9 / static_cast<double>(state.range(0));
}

} // namespace

/// Stands before the host layer's.
int VEXODownloadRpcTorrentGet(int /*taskId*/, const Json::Value& /*fields*/, Json::Value& reply) {
    reply.swap(supplied);
    return 0;
}

BENCHMARK(plan)
    ->ArgNames({"files", "usedHeap"})
    ->ArgsProduct({{10, 1000, 10000, 100000}, {0, 1}})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
