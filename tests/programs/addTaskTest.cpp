#include "tests/host/loopbackEngine.h"
#include "tests/programs/programRun.h"

#include <map>

namespace {

constexpr const char* kFolder = "/srv/download/";
const std::string kHash(40, 'a');
const std::string kOtherHash(40, 'b');

/// An engine that takes and moves torrents as it is told.
struct AddTask : testing::Test {
    AddTask() {
        setenv("VEXODL_RPC_URL", engine.url.c_str(), 1);
        fs::remove_all("/srv/download");
        fs::remove_all("/srv/database");
        fs::create_directories("/srv/download");
        fs::create_directories("/srv/database");
    }

    static std::string textOf(const std::string& request, const std::string& name) {
        const std::size_t begin = request.find('"' + name + R"(":)");
        const std::size_t text = request.find('"', begin + name.size() + 3) + 1;
        return begin == std::string::npos ? "" : request.substr(text, request.find('"', text) - text);
    }

    std::string answer(const std::string& request) {
        if (request.find("torrent-add") != std::string::npos) {
            added = textOf(request, "metainfo") + textOf(request, "filename");
            if (refuses) {
                return http(200, R"({"result":"invalid or corrupt torrent file","arguments":{}})");
            }
            const bool isNew = directories.try_emplace(kHash, textOf(request, "download-dir")).second;
            return http(200, R"({"result":"success","arguments":{"torrent-)"s + (isNew ? "added" : "duplicate") +
                                 R"(":{"hashString":")" + kHash + R"("}}})");
        }
        if (request.find("torrent-set-location") != std::string::npos) {
            const bool moves = request.find(R"("move":true)") != std::string::npos;
            directories[textOf(request, "ids")] = moves ? textOf(request, "location") : "not moved";
            return http(200, R"({"result":"success","arguments":{}})");
        }
        std::string all;
        for (const auto& [hash, directory] : directories) {
            all +=
                (all.empty() ? "" : ",") + (R"({"hashString":")" + hash) + R"(","downloadDir":")" + directory + R"("})";
        }
        return success("[" + all + "]");
    }

    static ProgramRun add(const std::string& torrent) { return runProgram({"/usr/local/bin/addTask", torrent}); }

    void expectTask(const std::string& torrent, const std::string& number) {
        const ProgramRun run = add(torrent);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.output, number + "\n");
        EXPECT_EQ(run.errors, "");
        EXPECT_TRUE(fs::is_directory(kFolder + number));
    }

    static void expectRefusal(const std::string& torrent, const std::string& reason) {
        const ProgramRun run = add(torrent);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(run.errors, "addTask: " + reason + "\n");
        EXPECT_TRUE(fs::is_empty(kFolder));
    }

    bool refuses = false;
    std::string added;
    std::map<std::string, std::string> directories; ///< by torrent
    LoopbackEngine engine{[this](const std::string& request) { return answer(request); }};
};

TEST_F(AddTask, TakesANumberAboveEachFolderTorrentAndRow) {
    const std::string magnet = "magnet:?xt=urn:btih:" + kHash + "&dn=a%20b";
    expectTask(magnet, "1");
    EXPECT_EQ(added, magnet);
    EXPECT_EQ(directories[kHash], "/srv/download/1");
    expectTask(magnet, "1"); // the engine has it
    EXPECT_FALSE(fs::exists("/srv/download/2"));

    directories.clear();
    const std::string torrent = std::string("d4:info\0\xFF\xFE", 10);
    writeFile("/srv/a.torrent", torrent);
    writeFile("/srv/download/2", "a file in the way");
    fs::permissions("/srv/download", fs::perms(02775));
    expectTask("/srv/a.torrent", "3");
    EXPECT_EQ(added, "ZDQ6aW5mbwD//g==");
    EXPECT_EQ(fs::status("/srv/download/3").permissions(), fs::perms(02775));

    directories.clear();
    shell("sed s/,12,/,41,/ /usr/src/downloadthumbnail/tests/host/database1.sql | sqlite3 /srv/database/thumbnail.db");
    expectTask(magnet, "42");
    directories[kOtherHash] = "/srv/download/50";
    directories.erase(kHash);
    expectTask(magnet, "51");
}

TEST_F(AddTask, HasATorrentMovedThatDownloadsElsewhere) {
    directories[kHash] = "/srv/elsewhere";
    std::string upper = kHash;
    upper.front() = 'A';
    expectTask(upper, "1");
    EXPECT_EQ(directories[kHash], "/srv/download/1");
    expectTask(kHash, "1");

    directories[kHash] = "/srv/elsewhere";
    expectTask("magnet:?xt=urn:btih:" + kHash, "2");
    EXPECT_EQ(directories[kHash], "/srv/download/2");
}

TEST_F(AddTask, RefusesAndLeavesNoFolder) {
    const std::string where = " (http://" + engine.url.substr(engine.url.find('@') + 1) + ")";
    expectRefusal(kOtherHash, "the torrent engine has no torrent " + kOtherHash);
    expectRefusal("/srv/no\nfile", R"(/srv/no\x0Afile: No such file or directory)");
    expectRefusal("/srv", "/srv: Is a directory");
    writeFile("/srv/empty", "");
    expectRefusal("/srv/empty", "/srv/empty: no torrent");
    refuses = true;
    expectRefusal("magnet:?", "refused: invalid or corrupt torrent file" + where);
    setenv("VEXODL_RPC_URL", "http://127.0.0.1:9/x", 1);
    EXPECT_EQ(add("magnet:?").status, 1);
    EXPECT_EQ(runProgram({"/usr/local/bin/addTask", "--what"}).status, 2);
    EXPECT_EQ(runProgram({"/usr/local/bin/addTask", "--help"}).status, 0);
}

} // namespace
