#include "tests/host/loopbackEngine.h"
#include "tests/programs/programRun.h"

namespace {

// One picture is recorded, under a name that is foreign text as well; the other photo is none.
TEST(MakeThumbnails, ShowsForeignTextAsItDoesNothingToATerminal) {
    const std::string photo = R"("name":"a\n\u001b[2J\u009b\u202e\\b.jpg","length":1,"bytesCompleted":1})";
    const LoopbackEngine engine([&](const std::string&) {
        return success(R"([{"hashString":"aa","downloadDir":"/srv/download/7","files":[{)" + photo + ",{" + photo +
                       R"(],"fileStats":[{"wanted":true},{"wanted":true}]}])");
    });
    setenv("VEXODL_RPC_URL", engine.url.c_str(), 1);
    const std::string name = "a\n\x1B[2J\u009B\u202E\\b.jpg";
    const std::string shown = R"(a\x0A\x1B[2J\xC2\x9B\xE2\x80\xAE\b.jpg)";
    fs::create_directories("/srv/download/7");
    writeFile("/srv/download/7/" + name, "x");
    shell("{ cat /usr/src/downloadthumbnail/tests/host/database1.sql; echo 'UPDATE thumbnail SET task_id = 7,"
          " file_index = 1, thumbnail_index = 0, thumbnail_filename = char(27) WHERE thumbnail_id = 1;'; }"
          " | sqlite3 /srv/database/thumbnail.db");
    for (const std::string debug : {"", "--debug "}) {
        const ProgramRun run = runProgram(words("/usr/local/bin/makeThumbnails " + debug + "generate 7"));
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.output.find(R"( \x1B )"), std::string::npos) << run.output;
        EXPECT_NE(run.errors.find("missing: 0_0 of " + shown + ": no picture: not a picture format that is decoded\n"),
                  std::string::npos)
            << run.errors;
        EXPECT_EQ(run.errors.find(" from [/srv/download/7/" + shown + "] ") != std::string::npos, !debug.empty())
            << run.errors;
        EXPECT_EQ((run.output + run.errors).find('\x1B'), std::string::npos);
        EXPECT_EQ(run.errors.find("\n["), std::string::npos) << run.errors;
    }
}

TEST(MakeThumbnails, TellsWhyThereIsNoListOfFiles) {
    std::string torrents;
    int status = 200;
    const LoopbackEngine engine(
        [&](const std::string&) { return status == 200 ? success("[" + torrents + "]") : http(status, ""); });
    setenv("VEXODL_RPC_URL", engine.url.c_str(), 1);
    const auto reason = [](const std::string& command) {
        const ProgramRun run = runProgram(words("/usr/local/bin/makeThumbnails " + command + " 7"));
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.output, "");
        return run.errors.substr(0, run.errors.find(" (http"));
    };
    const std::string begin = "makeThumbnails: task 7: ";
    for (const std::string command : {"count", "generate"}) {
        torrents = R"({"hashString":"a","downloadDir":"/srv/elsewhere"})";
        EXPECT_EQ(reason(command),
                  begin + "the torrent engine has no torrent that downloads to /var/services/download/7\n");
        torrents = R"({"hashString":"a","downloadDir":"/srv/download/7","files":[],"fileStats":[]})";
        EXPECT_EQ(reason(command), begin + "its torrent has no list of files yet, or none is wanted\n");
        status = 401;
        EXPECT_EQ(reason(command), begin + "torrent engine: HTTP status 401");
        status = 200;
    }
}

TEST(MakeThumbnails, ListsRowsWithoutAnEngine) {
    setenv("VEXODL_RPC_URL", "http://127.0.0.1:9/x", 1);
    fs::remove_all("/srv/database");
    fs::create_directories("/srv/database");
    shell("sqlite3 /srv/database/thumbnail.db </usr/src/downloadthumbnail/tests/host/database1.sql");
    const ProgramRun run = runProgram(words("env TZ=UTC /usr/local/bin/makeThumbnails rows 12"));
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.output, R"(    id  second  picture       made                 file
     1      -7  -7_4.jpeg     1969-12-31 23:59:52  \xFF\x 😀
     2  2147483647  2147483647_4.jpeg  2038-01-19 03:14:06  it's "so";\x0A-- and so
)");
    EXPECT_EQ(runProgram(words("/usr/local/bin/makeThumbnails rows")).status, 2);
}

} // namespace
