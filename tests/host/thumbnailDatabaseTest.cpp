#include "platform/thumbnailDatabase.h"
#include "tests/host/caller.h"
#include "tests/host/sandbox.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <json/value.h>

#include <sys/resource.h>

#include <csignal>
#include <ctime>
#include <future>

static bool timeFlies = false; ///< while the database waits for another

extern "C" __attribute__((visibility("default"))) int usleep(useconds_t microseconds) {
    const timespec real = {0, timeFlies ? 0 : static_cast<long>(microseconds) * 1000};
    return nanosleep(&real, nullptr);
}

namespace {

using std::filesystem::perms;

struct ThumbnailDatabase : testing::Test {
    ThumbnailDatabase() { use(file); }
    static void use(const std::string& path) { setenv("VEXODL_DATABASE", path.c_str(), 1); }

    Sandbox sandbox;
    std::string file = sandbox / "made/folder/thumbnail.db";
};

Json::Value makeRow(int fileIndex, int second = 721, const std::string& path = "Film/a.mkv") {
    Json::Value row;
    row["thumbnail_id"] = -1;
    row["task_id"] = 12;
    row["file_index"] = fileIndex;
    row["thumbnail_index"] = 4;
    row["thumbnail_second"] = second;
    row["thumbnail_filename"] = std::to_string(second) + "_4.jpeg";
    row["create_time"] = second - 1;
    row["file_path"] = path;
    return row;
}

int create(Json::Value row) {
    return DownloadThumbnailDBCreate(&row);
}

Json::Value rows(int taskId = 12) {
    Json::Value reply;
    const int result = DownloadThumbnailDBGetByTaskId(taskId, &reply);
    return result == 0 ? reply["data"] : Json::Value(result);
}

TEST_F(ThumbnailDatabase, GivesRowsBackAsTheyWereWrittenLast) {
    EXPECT_EQ(rows(), Json::Value(Json::arrayValue));
    Json::Value expected(Json::arrayValue);
    expected.append(makeRow(3, 9, std::string("'\"\n\0\xff \xf0\x9f\x98\x80", 10)));
    expected.append(makeRow(-2147483647 - 1, 2147483647));
    EXPECT_EQ(create(makeRow(3)) | create(expected[1]) | create(expected[0]), 0);
    expected[0]["thumbnail_id"] = 1;
    expected[1]["thumbnail_id"] = 2;
    EXPECT_EQ(rows(), expected);
    EXPECT_EQ(rows(13), Json::Value(Json::arrayValue));
    EXPECT_EQ(std::filesystem::status(file).permissions(), perms(0640));
    EXPECT_EQ(std::filesystem::status(sandbox / "made/folder").permissions(), perms(0750));
}

TEST_F(ThumbnailDatabase, RefusesMalformedRows) {
    // clang-format off
    const std::pair<const char*, Json::Value> wrong[] = {
        {"task_id", "12"}, {"file_index", 3.0}, {"thumbnail_index", 2147483648U}, {"thumbnail_second", {}},
        {"create_time", true}, {"thumbnail_filename", 3}, {"file_path", {}}};
    // clang-format on
    for (const auto& [key, value] : wrong) {
        Json::Value row = makeRow(3);
        row[key] = value;
        EXPECT_LT(create(row), 0) << key;
    }
    EXPECT_LT(create(Json::Value()) & create("row") & create(Json::arrayValue) & DownloadThumbnailDBCreate(nullptr), 0);
    EXPECT_LT(DownloadThumbnailDBGetByTaskId(12, nullptr), 0);
}

TEST_F(ThumbnailDatabase, TakesTheSameRowsFromProcessesAndThreadsAtOnce) {
    const auto write = [] {
        bool all = true;
        for (int index = 0; index < 150; ++index) {
            all = create(makeRow(index)) == 0 && all;
        }
        return all;
    };
    const auto writeTwice = [&] {
        auto other = std::async(std::launch::async, write);
        return write() && other.get();
    };
    EXPECT_TRUE(inProcess(writeTwice, 2));
    EXPECT_EQ(rows().size(), 150U);
}

TEST_F(ThumbnailDatabase, GivesUpWhenAnotherKeepsItLocked) {
    ASSERT_EQ(create(makeRow(0)), 0);
    SQLite::Database other(file, SQLite::OPEN_READWRITE);
    other.exec("BEGIN EXCLUSIVE");
    timeFlies = true;
    EXPECT_LT(create(makeRow(1)), 0);
    EXPECT_EQ(rows(), Json::Value(-1));
    timeFlies = false;
    other.exec("COMMIT");
    EXPECT_EQ(create(makeRow(1)), 0);
}

TEST_F(ThumbnailDatabase, LeavesAFileThatIsNotItsOwn) {
    SQLite::Database(sandbox / "later", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec("PRAGMA user_version = 2");
    use(sandbox / "torn");
    ASSERT_EQ(create(makeRow(0)), 0);
    std::fstream(sandbox / "torn", std::ios::in | std::ios::out).seekp(4096) << std::string(8192, '\1');
    sandbox.write("garbage", std::string(9000, 'x'));
    std::filesystem::last_write_time(sandbox / "garbage", {});
    for (const char* name : {"later", "torn", "garbage", "garbage/below"}) {
        use(sandbox / name);
        EXPECT_LT(create(makeRow(1)), 0) << name;
        EXPECT_EQ(rows(), Json::Value(-1)) << name;
    }
    EXPECT_EQ(std::filesystem::last_write_time(sandbox / "garbage"), std::filesystem::file_time_type());
}

TEST_F(ThumbnailDatabase, ReadsWhatItMayNotWrite) {
    ASSERT_EQ(create(makeRow(0)), 0);
    std::filesystem::permissions(file, perms(0444));
    std::filesystem::permissions(sandbox / "made/folder", perms(0755));
    EXPECT_TRUE(inProcess(
        [] { return (getuid() != 0 || setuid(65534) == 0) && create(makeRow(1)) < 0 && rows().size() == 1; }));
}

TEST_F(ThumbnailDatabase, LosesNothingWhenTheDiskIsFull) {
    EXPECT_TRUE(inProcess([] {
        const rlimit limit{65536, 65536}; // a file cannot grow beyond, as on a full disk
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
        int stored = 0;
        while (stored < 99 && create(makeRow(stored, 7, std::string(4000, 'p'))) == 0) {
            ++stored;
        }
        return stored > 3 && stored < 99 && rows().size() == unsigned(stored);
    }));
    const unsigned kept = rows().size();
    EXPECT_EQ(create(makeRow(1000)), 0);
    EXPECT_EQ(rows().size(), kept + 1);
    EXPECT_EQ(SQLite::Database(file).execAndGet("PRAGMA integrity_check").getString(), "ok");
}

} // namespace
