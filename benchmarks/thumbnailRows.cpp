// Filtering a plan of 30 thumbnails, reading a task's rows, and storing one durably, on a file in the working
// directory.

#include "platform/thumbnailDatabase.h"
#include "thumbnail/thumbnailGenerator.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

namespace {

constexpr int kPlanned = 30;

/// Thumbnails as they are planned: six files of five.
std::vector<Thumbnail> planned() {
    std::vector<Thumbnail> plan;
    plan.reserve(kPlanned);
    for (int number = 0; number < kPlanned; ++number) {
        plan.emplace_back(1, number / 5, number % 5, "Task/film.mkv", VEXODL_MEDIA_TYPE_VIDEO);
    }
    return plan;
}

Json::Value rowOf(int file) {
    Thumbnail thumbnail(1, file, 0, "Task/a film of some length.mkv", VEXODL_MEDIA_TYPE_VIDEO);
    thumbnail.setThumbnail(std::to_string(file) + "_0.jpeg", 1, 1'700'000'000);
    Json::Value row;
    thumbnail.toJson(row);
    return row;
}

/// A database with so many rows of one task; the planned ones are not among them.
class Rows {
public:
    explicit Rows(int count) {
        setenv("VEXODL_DATABASE", path_, 1);
        std::filesystem::remove(path_);
        Json::Value first = rowOf(1000);
        DownloadThumbnailDBCreate(&first);
        SQLite::Database database(path_, SQLite::OPEN_READWRITE);
        database.exec("DELETE FROM thumbnail");
        SQLite::Statement insert(database, "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT ?) "
                                           "INSERT INTO thumbnail SELECT NULL, 1, 1000 + i, 0, 1, i || '_0.jpeg', "
                                           "'Task/a film of some length.mkv', 1700000000 FROM n");
        insert.bind(1, count);
        if (count > 0) {
            insert.exec();
        }
    }
    ~Rows() { std::filesystem::remove(path_); }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

private:
    const char* path_ = "benchmark.db";
};

void readRows(benchmark::State& state) {
    const Rows rows(static_cast<int>(state.range(0)));
    while (state.KeepRunning()) {
        Json::Value reply;
        if (DownloadThumbnailDBGetByTaskId(1, &reply) < 0 ||
            reply["data"].size() != static_cast<Json::ArrayIndex>(state.range(0))) {
            state.SkipWithError("not read");
            return;
        }
    }
}

/// The read is part of it.
void filterPlan(benchmark::State& state) {
    const Rows rows(static_cast<int>(state.range(0)));
    ThumbnailGenerator generator(1, false);
    while (state.KeepRunning()) {
        std::vector<Thumbnail> plan = planned();
        if (generator.filterExistThumbnail(plan) < 0 || plan.size() != kPlanned) {
            state.SkipWithError("not filtered");
            return;
        }
    }
}

void insertDurably(benchmark::State& state) {
    const Rows rows(0);
    int file = 0;
    while (state.KeepRunning()) {
        Json::Value row = rowOf(++file);
        if (DownloadThumbnailDBCreate(&row) < 0) {
            state.SkipWithError("not stored");
            return;
        }
    }
}

} // namespace

BENCHMARK(readRows)->ArgName("rows")->Arg(0)->Arg(30)->Arg(10000)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(filterPlan)->ArgName("rows")->Arg(0)->Arg(30)->Arg(10000)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(insertDurably)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK_MAIN();
