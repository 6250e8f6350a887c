#include "platform/thumbnailDatabase.h"
#include "host/database/thumbnailSchema.h"
#include "tests/host/caller.h"
#include "tests/host/sandbox.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <json/writer.h>

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

using Rows = std::vector<Json::Value>;

Json::Value makeRow(int fileIndex, int second = 721, const std::string& path = "Film/a.mkv", int id = -1) {
    Json::Value row;
    row["thumbnail_id"] = id;
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

Rows rows(int taskId = 12) {
    Json::Value reply;
    const int result = DownloadThumbnailDBGetByTaskId(taskId, &reply);
    return result == 0 ? Rows(reply["data"].begin(), reply["data"].end()) : Rows{-1};
}

/// Stores rows until one fails. @return how many were stored.
int store(int count, const std::string& path) {
    int stored = 0;
    for (; stored < count && create(makeRow(stored, 7, path)) == 0; ++stored) {
    }
    return stored;
}

TEST_F(ThumbnailDatabase, GivesRowsBackAsTheyWereWrittenLast) {
    EXPECT_EQ(rows(), Rows());
    const Json::Value first = makeRow(3, 9, std::string("'\"\n\0\xff \xf0\x9f\x98\x80", 10), 1);
    const Json::Value second = makeRow(-2147483647 - 1, 2147483647, "", 2);
    for (const Json::Value& row : {makeRow(3), second, first}) {
        EXPECT_EQ(create(row), 0);
    }
    EXPECT_EQ(rows(), Rows({first, second}));
    EXPECT_EQ(rows(13), Rows());
    EXPECT_EQ(std::filesystem::status(file).permissions(), perms(0640));
    EXPECT_EQ(std::filesystem::status(sandbox / "made/folder").permissions(), perms(0750));
}

TEST_F(ThumbnailDatabase, TakesOverAFileOfVersion1) {
    SQLite::Database old(sandbox / "old", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    std::ifstream text(VEXODL_DATABASE_1);
    old.exec(std::string(std::istreambuf_iterator<char>(text), {}));
    use(sandbox / "old");
    EXPECT_EQ(rows(), Rows({makeRow(3, -7, "\xff\\x \xf0\x9f\x98\x80", 1),
                            makeRow(-2147483647 - 1, 2147483647, "it's \"so\";\n-- and so", 2)}));
    EXPECT_EQ(create(makeRow(5)), 0);
    EXPECT_EQ(rows().size(), 3U);
    EXPECT_EQ(old.execAndGet("PRAGMA user_version").getInt(), host::kSchemaVersion);
}

TEST_F(ThumbnailDatabase, TakesTheSameRowsFromProcessesAndThreadsAtOnce) {
    const auto writeTwice = [] {
        auto other = std::async(std::launch::async, store, 150, "Film/a.mkv");
        return store(150, "Film/a.mkv") + other.get() == 300;
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
    EXPECT_EQ(rows(), Rows{-1});
    timeFlies = false;
}

TEST_F(ThumbnailDatabase, LeavesAFileThatIsNotItsOwn) {
    SQLite::Database(sandbox / "later", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
        .exec("PRAGMA user_version = " + std::to_string(host::kSchemaVersion + 1));
    use(sandbox / "torn");
    ASSERT_EQ(create(makeRow(0)), 0);
    std::fstream(sandbox / "torn", std::ios::in | std::ios::out).seekp(4096) << std::string(8192, '\1');
    sandbox.write("garbage", std::string(9000, 'x'));
    std::filesystem::last_write_time(sandbox / "garbage", {});
    for (const char* name : {"later", "torn", "garbage", "garbage/below"}) {
        use(sandbox / name);
        EXPECT_LT(create(makeRow(1)), 0) << name;
        EXPECT_EQ(rows(), Rows{-1}) << name;
    }
    EXPECT_EQ(std::filesystem::last_write_time(sandbox / "garbage"), std::filesystem::file_time_type());
}

TEST_F(ThumbnailDatabase, RefusesWhatWouldNotEndOrFillTheMemory) {
    const std::string table = host::kSchemaSteps.front();
    const std::string own = table + ";PRAGMA user_version = 1;";
    const std::string insert = "INSERT INTO thumbnail SELECT NULL, 12, value, 0, 7, ";
    const auto numbers = [](int count) {
        return " FROM (WITH RECURSIVE n(value) AS (SELECT 1 UNION ALL SELECT value + 1 FROM n WHERE value < " +
               std::to_string(count) + ") SELECT value FROM n)";
    };
    const std::tuple<std::string, std::size_t, std::string> files[] = {
        {"own", 1,
         own + insert + "'a', printf('%.16000c', 'x'), 9" + numbers(1) +
             "; ANALYZE; VACUUM; CREATE VIEW v AS SELECT * FROM thumbnail"},
        {"full", 10000, own + insert + "'a', 'b', 9" + numbers(10000)},
        {"more rows", 0, own + insert + "'a', 'b', 9" + numbers(10001)},
        {"long text", 0, own + insert + "'a', printf('%.17000c', 'x'), 9" + numbers(1)},
        {"long row", 0, own + insert + "printf('%.9000c', 'x'), printf('%.9000c', 'x'), 9" + numbers(1)},
        {"view", 0,
         "CREATE VIEW thumbnail AS SELECT value AS thumbnail_id, 12 AS task_id, 1 AS file_index, 0 AS"
         " thumbnail_index, 1 AS thumbnail_second, 'a' AS thumbnail_filename, 'b' AS file_path, 9 AS"
         " create_time" +
             numbers(3) + "; PRAGMA user_version = 1"},
        {"trigger", 0, own + "CREATE TRIGGER t INSERT ON thumbnail BEGIN SELECT 1; END"},
        {"index", 0, own + "CREATE INDEX i ON thumbnail(hex(file_path))"},
        {"generated", 0, own + "ALTER TABLE thumbnail ADD COLUMN g TEXT AS (hex(file_path))"},
    };
    for (const auto& [name, count, text] : files) {
        SQLite::Database(sandbox / name, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec(text);
        use(sandbox / name);
        EXPECT_EQ(rows() == Rows{-1} ? 0 : rows().size(), count) << name;
    }
    for (const char* name : {"trigger", "index", "generated"}) {
        use(sandbox / name);
        EXPECT_LT(create(makeRow(1)), 0) << name;
    }
    use(sandbox / "own");
    EXPECT_EQ(create(makeRow(1)), 0);
    EXPECT_LT(create(makeRow(1, 7, std::string(17000, 'p'))), 0);
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
        const int stored = store(99, std::string(4000, 'p'));
        return stored > 3 && stored < 99 && rows().size() == unsigned(stored);
    }));
    const std::size_t kept = rows().size();
    EXPECT_EQ(create(makeRow(1000)), 0);
    EXPECT_EQ(rows().size(), kept + 1);
    EXPECT_EQ(SQLite::Database(file).execAndGet("PRAGMA integrity_check").getString(), "ok");
}

} // namespace
