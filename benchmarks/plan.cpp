// What getTotalThumbnailNumber() takes once the engine's answer is there as JSON, beside jsoncpp's parse of that
// answer's text, in turn, in time on a processor. The time shown is that of the library. With usedHeap 1 the memory is
// what the plans before have left, in pieces; with 0 it is given back first, as if the process had just begun.

#include "benchmarks/planBesideParse.h"
#include "benchmarks/torrentItem.h"
#include "platform/torrentEngine.h"

#include <benchmark/benchmark.h>
#include <malloc.h>

namespace {

Json::Value supplied; // the next answer

void plan(benchmark::State& state) {
    const std::string answer = answerOfFiles(1, static_cast<int>(state.range(0)));
    const auto parse = [&] {
        if (state.range(1) == 0) {
            malloc_trim(0);
        }
        return processorSecondsOf([&answer] { supplied = parsed(answer); });
    };
    planBesideParse(state, "plan", parse, [](const auto& work) { return processorSecondsOf(work); });
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
