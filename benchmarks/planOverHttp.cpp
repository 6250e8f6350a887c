// What getTotalThumbnailNumber() takes with an engine that answers at once over HTTP, beside jsoncpp's parse of the
// same answer, in turn. For the private root (scripts/privateRoot). The time shown is that of the library.

#include "benchmarks/loopbackEngine.h"
#include "benchmarks/median.h"
#include "benchmarks/torrentItem.h"
#include "thumbnail/thumbnailGenerator.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

void planOverHttp(benchmark::State& state) {
    const std::string answer = answerOfFiles(1, static_cast<int>(state.range(0)));
    const LoopbackEngine engine("/srv/download", {{1, answer}});
    std::vector<double> parse;
    std::vector<double> whole;
    while (state.KeepRunning()) {
        parse.push_back(secondsOf([&answer] { benchmark::DoNotOptimize(parsed(answer)); }));
        ThumbnailGenerator generator(1, false);
        int number = 0;
        whole.push_back(secondsOf([&] { number = generator.getTotalThumbnailNumber(); }));
        if (number <= 0) {
            state.SkipWithError("no plan");
            return;
        }
        state.SetIterationTime(whole.back());
    }
    const double seconds = median(whole);
    state.counters["parse_us"] = median(parse) * 1e6;
    state.counters["whole_us"] = seconds * 1e6;
    state.counters["whole/parse"] = seconds / median(parse);
    state.counters["whole_ns/file"] = seconds * 1e9 / static_cast<double>(state.range(0));
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
