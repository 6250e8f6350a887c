#include "tests/programs/manyTasks.h"

#include <cstdint>

namespace {

void clearAll() {
    for (const char* folder : {"/srv/download", "/srv/database"}) {
        fs::remove_all(folder);
        fs::create_directory(folder);
    }
}

/// A file of the one torrent, that of task 7.
struct TorrentFile {
    std::string name;
    std::int64_t length = 0;
    std::int64_t bytesCompleted = 0;
};

std::string inQuotes(const std::string& text) {
    return '"' + text + '"';
}

/// makeMissingThumbnails for task 7, with an engine that tells of what the test says and a clock that it sets.
struct TaskRun : testing::Test {
    TaskRun() {
        clearAll();
        fs::create_directories(pictures);
        setenv("VEXODL_RPC_URL", engine.url.c_str(), 1);
    }

    std::string torrents() {
        std::string files;
        std::string stats;
        std::int64_t have = 0;
        std::int64_t whole = 0;
        for (const TorrentFile& file : torrent) {
            const std::string comma = files.empty() ? "" : ",";
            files += comma + R"({"name":)" + inQuotes(file.name) + R"(,"length":)" + std::to_string(file.length) +
                     R"(,"bytesCompleted":)" + std::to_string(file.bytesCompleted) + "}";
            stats += comma + R"({"wanted":true})";
            have += file.bytesCompleted;
            whole += file.length;
        }
        return R"([{"hashString":)" + inQuotes(hash) + R"(,"downloadDir":"/srv/download/7","wanted":[1],"files":[)" +
               files + R"(],"fileStats":[)" + stats + R"(],"sizeWhenDone":)" + std::to_string(whole) +
               R"(,"haveValid":)" + std::to_string(have) + R"(,"leftUntilDone":)" + std::to_string(whole - have) + "}]";
    }

    /// A run so many minutes from now. @return what it printed; it must end well.
    std::string runAt(int minutes, const std::string& tasks = "") {
        requests = 0;
        const ProgramRun run = runProgram(minutesFromNow(minutes, program + tasks));
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_EQ(run.errors, "");
        return run.output;
    }

    static std::string rows() {
        shell("sqlite3 /srv/database/thumbnail.db 'SELECT file_index, file_path FROM thumbnail ORDER BY 1' >rows");
        return readFile("rows");
    }

    static void makePhoto(const std::string& name, const std::string& colour = "red") {
        shell("convert -size 64x48 xc:" + colour + " /srv/download/7/" + name);
    }

    TorrentFile whole(const std::string& name) const {
        const auto size = static_cast<std::int64_t>(fs::file_size(task / name));
        return {name, size, size};
    }

    const std::string program = "/usr/local/bin/makeMissingThumbnails";
    const fs::path task = "/srv/download/7";
    const fs::path pictures = task / "vexodlthumbnail";
    std::string hash = "aa";
    std::vector<TorrentFile> torrent;
    std::atomic<int> requests = 0;
    LoopbackEngine engine{[this](const std::string&) {
        ++requests;
        return success(torrents());
    }};
};

TEST_F(TaskRun, RemovesWhatIsNotTrueAndNothingElse) {
    for (const char* name : {"a.png", "b.png", "c.png"}) {
        makePhoto(name);
        torrent.push_back(whole(name));
    }
    EXPECT_EQ(runAt(0), "task 7: 3 pictures made\n");
    EXPECT_EQ(runAt(1), "");
    EXPECT_EQ(requests, 1);

    // One picture is gone, one file is another one, and one is named as it was while it was downloaded.
    fs::remove(pictures / "0_0.jpeg");
    makePhoto("other.png", "blue");
    torrent[1] = whole("other.png");
    shell("sqlite3 /srv/database/thumbnail.db \"UPDATE thumbnail SET file_path = 'c.png.part' WHERE file_index = 2\"");
    const std::string third = readFile(pictures / "2_0.jpeg");
    EXPECT_EQ(runAt(2), "task 7: 2 rows removed that were not true any more\ntask 7: 2 pictures made\n");
    EXPECT_EQ(rows(), "0|a.png\n1|other.png\n2|c.png.part\n");
    EXPECT_EQ(readFile(pictures / "2_0.jpeg"), third);

    // A row that somebody removed is made again; and all are of a torrent that takes the number over.
    shell("sqlite3 /srv/database/thumbnail.db 'DELETE FROM thumbnail WHERE file_index = 0'");
    EXPECT_EQ(runAt(3), "task 7: 1 picture made\n");
    hash = "bb";
    EXPECT_EQ(runAt(4), "task 7: 3 rows removed that were not true any more\ntask 7: 3 pictures made\n");
    EXPECT_EQ(runAt(5), "");
}

// Sixty mebibytes of nothing: no frame can be there. How often it is tried is told by the time of the last.
TEST_F(TaskRun, TriesAFileThatGrowsByTenths) {
    constexpr std::int64_t kMebi = 1048576;
    writeFile(task / "film.mkv.part", "");
    fs::resize_file(task / "film.mkv.part", 60 * kMebi);
    torrent = {{"film.mkv", 60 * kMebi, 10 * kMebi}};
    const auto tried = [this](int minutes, std::int64_t bytes) {
        torrent.front().bytesCompleted = bytes;
        EXPECT_EQ(runAt(minutes), "") << "while it grows nothing is told";
        shell("sqlite3 /srv/database/memory.db 'SELECT bytes FROM failed' >tried");
        return std::stol(readFile("tried")) == bytes;
    };
    EXPECT_TRUE(tried(0, 10 * kMebi));
    EXPECT_FALSE(tried(3, 12 * kMebi)) << "not five minutes";
    EXPECT_TRUE(tried(6, 12 * kMebi));
    EXPECT_FALSE(tried(12, 13 * kMebi)) << "not a tenth";
    EXPECT_TRUE(tried(67, 13 * kMebi)) << "an hour";

    // Finished, it is tried at once, and told when it fails; then again after an hour, or when it is named.
    fs::rename(task / "film.mkv.part", task / "film.mkv");
    torrent.front().bytesCompleted = 60 * kMebi;
    const std::string told = runAt(81);
    EXPECT_EQ(told.rfind("task 7: failed: film.mkv: cannot read the container", 0), 0U) << told;
    EXPECT_EQ(runAt(140), "");
    shell("sqlite3 /srv/database/memory.db 'SELECT tries FROM failed' >tries");
    EXPECT_EQ(readFile("tries"), "1\n");
    EXPECT_EQ(runAt(142), "") << "told once";
    EXPECT_EQ(runAt(143, " 7"), "");
    shell("sqlite3 /srv/database/memory.db 'SELECT tries FROM failed' >tries");
    EXPECT_EQ(readFile("tries"), "3\n");
    const ProgramRun status = runProgram(words(program + " --status"));
    EXPECT_NE(status.output.find("task 7: film.mkv: cannot read the container"), std::string::npos) << status.output;
}

// Each at 0, 1, 3, 7 and 15 o'clock: five times, and told the first time. No other minute plans a task.
TEST(ManyTasks, FilesThatFailForEverAreQuietAndCheap) {
    constexpr int kTasks = 10;
    clearAll();
    ManyTasks tasks(kTasks, 5, [](const fs::path& photo) { writeFile(photo, "no photo"); });
    std::string printed;
    for (int minute = 0; minute < 1440; minute += 5) {
        const ProgramRun run = runProgram(minutesFromNow(minute, "/usr/local/bin/makeMissingThumbnails"));
        ASSERT_EQ(run.status, 0) << run.errors;
        printed += run.output;
    }
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), kTasks * 5) << printed;
    EXPECT_EQ(tasks.plans, kTasks * 5);
    shell("sqlite3 /srv/database/memory.db 'SELECT DISTINCT tries FROM failed' >tries");
    EXPECT_EQ(readFile("tries"), "5\n");
}

TEST(ManyTasks, OneThatChangesIsPlannedAlone) {
    clearAll();
    ManyTasks tasks(100, 1, [](const fs::path& photo) { writeFile(photo, "no photo"); });
    const auto look = [&] {
        tasks.requests = 0;
        tasks.plans = 0;
        return runProgram({"/usr/local/bin/makeMissingThumbnails"});
    };
    EXPECT_EQ(look().status, 0);
    EXPECT_EQ(tasks.plans, 100);
    EXPECT_EQ(look().output, "");
    EXPECT_EQ(tasks.requests, 2) << "one of them for the session";
    writeFile("/srv/download/42/0.png", "another that is none");
    EXPECT_EQ(look().output.rfind("task 42: failed: 0.png: ", 0), 0U);
    EXPECT_EQ(tasks.plans, 1);
}

TEST(ManyTasks, APasswordIsToldToNobodyButTheEngine) {
    clearAll();
    const LoopbackEngine engine([](const std::string&) { return http(401, "wrong"); });
    setenv("VEXODL_RPC_URL", engine.url.c_str(), 1);
    const ProgramRun run = runProgram({"/usr/local/bin/makeMissingThumbnails"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors.rfind("makeMissingThumbnails: torrent engine: HTTP status 401 (http://127.0.0.1:", 0), 0U)
        << run.errors;
    setenv("VEXODL_RPC_URL", "http://user:p@s/secret@127.0.0.1:1/transmission/rpc", 1);
    const ProgramRun cut = runProgram({"/usr/local/bin/makeMissingThumbnails"});
    EXPECT_EQ(cut.status, 1);
    shell("cat /srv/database/* >kept");
    EXPECT_EQ((run.errors + cut.errors + readFile("kept")).find("secret"), std::string::npos);
}

} // namespace
