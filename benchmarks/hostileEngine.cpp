// Rows of a table: what makeThumbnails takes of an engine's answers and of databases that would fill its memory or keep
// it for ever, and what it does with a torrent's names.
//
//   hostileEngine RUN_COST
//
// For the private root. RUN_COST is runCost.cpp.

#include "benchmarks/engineProcess.h"
#include "benchmarks/torrentItem.h"
#include "platform/thumbnailDatabase.h"
#include "tests/programs/programRun.h"
#include "thumbnail/thumbnailGenerator.h"

#include <cstdio>
#include <iostream>

namespace {

constexpr int kTask = 7;
constexpr const char* kDatabase = "/srv/database/thumbnail.db";
constexpr const char* kMake = "timeout 300 makeThumbnails --debug generate 7";

std::string answerOfNames(const std::vector<std::string>& names) {
    std::string files;
    std::string stats;
    for (const std::string& name : names) {
        files += fileText(name, 1000);
        stats += fileStatsText(1000);
    }
    return answerText(kTask, files, stats);
}

/// Runs makeThumbnails with that answer and prints its row.
void row(const std::string& runCost, const std::string& title, const std::string& answer) {
    const EngineProcess engine("/srv/download", {{kTask, answer}});
    const ProgramRun run = runProgram(words(runCost + " " + kMake));
    const std::vector<std::string> cost = words(run.output);
    const std::string said = run.errors.substr(0, run.errors.find('\n')).substr(0, 120);
    std::printf("| %s | %s | %.2f | %s | %s |\n", title.c_str(), cost.at(0).c_str(), std::stod(cost.at(1)) / 1000,
                cost.at(2).c_str(), said.c_str());
}

/// The same with a photo that is not there, and a database that this SQL has changed.
void rowOfDatabase(const std::string& runCost, const std::string& title, const std::string& sql) {
    Thumbnail thumbnail(1, 0, 0, "Task/photo.jpg", VEXODL_MEDIA_TYPE_PHOTO);
    thumbnail.setThumbnail("0_0.jpeg", 1, 1'700'000'000);
    Json::Value made;
    thumbnail.toJson(made);
    DownloadThumbnailDBCreate(&made);
    writeFile("change.sql", sql);
    shell("sqlite3 "s + kDatabase + " <change.sql");
    row(runCost, title, answerOfNames({"Task/photo.jpg"}));
    fs::remove(kDatabase);
}

void yesOrNo(const char* question, bool yes) {
    std::printf("| %s | %s |\n", question, yes ? "yes" : "no");
}

/// What acts on a terminal or forges a line.
bool acts(const std::string& text) {
    const auto parts = {"\x1b"s, "\xc2\x9b"s, "\xe2\x80\xae"s, "\nforged"s};
    return std::any_of(parts.begin(), parts.end(),
                       [&](const std::string& part) { return text.find(part) != std::string::npos; });
}

void questions() {
    const fs::path task = "/srv/download/" + std::to_string(kTask);
    fs::create_directories(task / "Task");
    fs::create_directories(task / "vexodlthumbnail");
    const std::string name = "Task/a\nforged\x1b[31m\xc2\x9b\xe2\x80\xae.jpg";
    writeFile(task / name, "no photo");
    writeFile(task / "vexodlthumbnail/0_0.jpeg", "a picture that was made");
    writeFile(task / "vexodlthumbnail/.newPicture.x", "foreign");
    std::string inJson = "Task/a\\nforged\\u001b[31m\\u009b\\u202e.jpg";
    const EngineProcess engine("/srv/download", {{kTask, answerOfNames({inJson, "vexodlthumbnail/0_0.jpeg"})}});
    const ProgramRun run = runProgram(words(kMake));
    std::puts("\nNames of a torrent\n\n| | |\n|---|---|");
    yesOrNo("a newline, ESC, U+009B or U+202E reaches the terminal as it is", acts(run.output + run.errors));
    yesOrNo("they are shown as escapes",
            run.errors.find(R"(a\x0Aforged\x1B[31m\xC2\x9B\xE2\x80\xAE.jpg)") != std::string::npos);
    yesOrNo("a torrent's file vexodlthumbnail/0_0.jpeg is overwritten",
            readFile(task / "vexodlthumbnail/0_0.jpeg") != "a picture that was made");
    yesOrNo("a torrent's file vexodlthumbnail/.newPicture.x is removed",
            !fs::exists(task / "vexodlthumbnail/.newPicture.x"));
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "usage: hostileEngine RUN_COST\n";
        return 2;
    }
    try {
        const std::string runCost = arguments[1];
        for (const std::size_t mebibytes : {16U, 64U}) {
            std::string zeros = "[";
            while (zeros.size() < mebibytes << 20U) {
                zeros += "0,";
            }
            row(runCost, "an answer of " + std::to_string(mebibytes) + " MiB of [0,0,0", zeros + "0]");
        }
        rowOfDatabase(
            runCost, "a database whose thumbnails are a view of an endless query",
            "DROP TABLE thumbnail; CREATE VIEW thumbnail AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT "
            "i + 1 FROM n) SELECT i thumbnail_id, 8 task_id, i file_index, 0 thumbnail_index, 1 "
            "thumbnail_second, 'x' thumbnail_filename, 'x' file_path, 0 create_time FROM n;");
        const std::string insert = "INSERT INTO thumbnail SELECT NULL, 7, ";
        rowOfDatabase(runCost, "400,000 rows of one task",
                      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 400000) " + insert +
                          "1000 + i, 0, 1, i || '_0.jpeg', 'Task/a film of some length.mkv', 1700000000 FROM n;");
        rowOfDatabase(runCost, "one row of 100 MiB",
                      insert + "1000, 0, 1, hex(zeroblob(52428800)), 'Task/film.mkv', 1700000000;");
        questions();
    } catch (const std::exception& error) {
        std::cerr << "hostileEngine: " << error.what() << '\n';
        return 1;
    }
    return testing::Test::HasFailure() ? 1 : 0;
}
