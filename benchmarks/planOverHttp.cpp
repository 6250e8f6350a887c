// What getTotalThumbnailNumber() takes with an engine that answers at once over HTTP, beside jsoncpp's parse of the
// same answer, in turn. For the private root (scripts/privateRoot). The time shown is that of the library.

#include "benchmarks/engineProcess.h"
#include "benchmarks/planBesideParse.h"
#include "benchmarks/torrentItem.h"

namespace {

void planOverHttp(benchmark::State& state) {
    const std::string answer = answerOfFiles(1, static_cast<int>(state.range(0)));
    const EngineProcess engine("/srv/download", {{1, answer}});
    const auto parse = [&answer] { return secondsOf([&answer] { benchmark::DoNotOptimize(parsed(answer)); }); };
    planBesideParse(state, "whole", parse, [](const auto& work) { return secondsOf(work); });
}

} // namespace

BENCHMARK(planOverHttp)
    ->ArgName("files")
    ->Arg(10)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
