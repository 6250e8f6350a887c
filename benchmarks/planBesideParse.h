#pragma once

#include "benchmarks/median.h"
#include "thumbnail/thumbnailGenerator.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

/// Takes the parse of an answer and the library's plan of its task, number 1, in turn. The time shown is the plan's;
/// the columns are the medians of both and what they come to.
///
/// @param name   of the plan's columns.
/// @param parse  parses the answer. @return the seconds of that.
/// @param timed  tells the seconds of a call.
template <typename Parse, typename Timed>
void planBesideParse(benchmark::State& state, const std::string& name, const Parse& parse, const Timed& timed) {
    std::vector<double> parses;
    std::vector<double> plans;
    while (state.KeepRunning()) {
        parses.push_back(parse());
        ThumbnailGenerator generator(1, false);
        int number = 0;
        plans.push_back(timed([&] { number = generator.getTotalThumbnailNumber(); }));
        if (number <= 0) {
            state.SkipWithError("no plan");
            return;
        }
        state.SetIterationTime(plans.back());
    }
    const double seconds = median(plans);
    state.counters["parse_us"] = median(parses) * 1e6;
    state.counters[name + "_us"] = seconds * 1e6;
    state.counters[name + "/parse"] = seconds / median(parses);
    state.counters[name + "_ns/file"] = seconds * 1e9 / static_cast<double>(state.range(0));
}
