#include "host/engine/torrentEngine.h"
#include "tests/host/caller.h"
#include "tests/host/loopbackEngine.h"
#include "tests/host/sandbox.h"

#include <json/writer.h>

namespace {

struct TorrentEngine : testing::Test {
    TorrentEngine() {
        setenv("http_proxy", "http://127.0.0.1:1", 1); // nobody listens there
        fields.append("files");
    }

    /// @return the torrents for task 7, as text, or why there are none.
    std::string ask() {
        std::string answer;
        onSmallStack([&] {
            try {
                Json::StreamWriterBuilder builder;
                builder["indentation"] = "";
                answer = Json::writeString(builder, host::askForTaskTorrent(settings, 7, fields)["torrents"]);
            } catch (const std::exception& error) {
                answer = error.what();
            }
        });
        return answer;
    }

    /// Asks an engine that gives the n-th request the n-th answer.
    std::string ask(const std::vector<std::string>& answers) {
        requests.clear();
        const LoopbackEngine engine([&](const std::string& request) {
            requests.push_back(request);
            return answers.at(requests.size() - 1);
        });
        settings.url = engine.url;
        return ask();
    }

    void expectAnswer(const std::vector<std::string>& script, const std::string& beginning) {
        const std::string answer = ask(script);
        EXPECT_EQ(answer.substr(0, beginning.size()), beginning);
        EXPECT_EQ(answer.find("secret"), std::string::npos) << answer;
        EXPECT_EQ(requests.size(), script.size()) << answer;
    }

    std::string torrent(const std::string& directory) const {
        return R"({"downloadDir":")" + sandbox / directory + R"(","hashString":"aa"})";
    }

    Sandbox sandbox;
    host::EngineSettings settings{"", sandbox / "D", {}};
    Json::Value fields;
    const std::string found = success("[" + torrent("D//7/") + "]"); ///< the first answer, as a rule
    std::vector<std::string> requests;                               ///< heads and bodies
};

TEST_F(TorrentEngine, AsksForTheTorrentOfTheTasksDirectoryAlone) {
    std::filesystem::create_directories(sandbox / "D/7");
    std::filesystem::create_directory_symlink(sandbox / "D", sandbox / "other");
    const std::string item = R"([{"files":[{"length":5000000000,"name":"Film/a.mkv"}],"hashString":"aa"}])";
    const std::string others = R"([{"hashString":"bb","downloadDir":"/D/7"},{"downloadDir":7},3,)";
    const std::pair<std::size_t, const char*> parts[] = {
        {0, "Authorization: Basic dXNlcjpzZWNyZXQ=\r\n"},
        {1, "X-Transmission-Session-Id: S1\r\n"},
        {1, R"({"arguments":{"fields":["id","hashString","downloadDir"]},"method":"torrent-get"})"},
        {3, R"({"arguments":{"fields":["files","hashString","downloadDir"],"ids":["aa"]},"method":"torrent-get"})"},
        {3, "X-Transmission-Session-Id: S2\r\n"},
    };
    for (const char* directory : {"D/7", "D//7//", "other/7"}) {
        EXPECT_EQ(ask({http(409, "no", "x-transmission-session-id: S1\r\n"), success(others + torrent(directory) + "]"),
                       http(409, "no", "X-Transmission-Session-Id:S2\r\n"), success(item)}),
                  item)
            << directory;
        for (const auto& [request, part] : parts) {
            EXPECT_NE(requests.at(request).find(part), std::string::npos) << part;
        }
    }
}

TEST_F(TorrentEngine, PassesOnTheAnswerOrSaysWhyThereIsNone) {
    const std::string newSession = http(409, "", "X-Transmission-Session-Id: S\r\n");
    const std::string two = success("[" + torrent("D/7") + "," + torrent("D/7") + "]");
    // The answer's beginning, and the scripts that bring it about: an answer for each request.
    const std::pair<std::string, std::vector<std::vector<std::string>>> cases[] = {
        {"[]", {{success("[]")}, {success("[" + torrent("D/8") + "]")}, {found, success("[]")}}},
        {R"([{"files":[],"hashString":"aa"}])", {{found, success(R"([{"hashString":"aa","files":[]}])")}}},
        {"HTTP status 302 (", {{http(302, "", "Location: /\r\n")}}},
        {"HTTP status 401 (", {{http(401, "no")}}},
        {"HTTP status 409 (", {{newSession, newSession}, {http(409, "no id")}}},
        {"the answer is not a JSON object (http://127.0.0.1:",
         {{http(200, "<html>")},
          {http(200, "[]")},
          {http(200, "{} x")},
          {http(200, "{}//")},
          {http(200, std::string(2000, '['))}}},
        {"the answer is too long", {{http(200, std::string(60001, ' '))}}},
        {"refused: no method name (", {{http(200, R"({"result":"no method name"})")}}},
        {"refused: no result (", {{http(200, "{}")}}},
        {"the engine's answer holds no list", {{success("{}")}, {http(200, R"({"result":"success","arguments":7})")}}},
        {"two torrents download into", {{two}}},
        {"the engine answered for another", {{found, two}, {found, success(R"([{"hashString":"bb"}])")}}},
        {"the engine's torrent has no hash", {{success(R"([{"downloadDir":")" + sandbox / "D/7" + "\"}]")}}},
    };
    settings.limits.replyBytes = 60000; // several pieces
    for (const auto& [answer, scripts] : cases) {
        for (const std::vector<std::string>& script : scripts) {
            expectAnswer(script, answer);
        }
    }
    settings.limits.total = std::chrono::milliseconds(200);
    expectAnswer({""}, "Operation timed out");
    expectAnswer({found, found.substr(0, 20)}, "Operation timed out");
    EXPECT_EQ(ask().rfind("Failed to connect to 127.0.0.1 port", 0), 0U);
    settings.url = "file:///etc/passwd";
    EXPECT_EQ(ask().rfind("Protocol \"file\"", 0), 0U);
}

TEST_F(TorrentEngine, TakesLargeTasksAndNoAnswerThatWouldFillTheMemory) {
    const auto list = [](int count, const std::string& item) {
        std::string text = item;
        for (int more = 1; more < count; ++more) {
            text.append(",").append(item);
        }
        return text;
    };
    const std::string files = list(100000, R"({"beginPiece":1,"bytesCompleted":7,"endPiece":9,"length":5000000000,)"
                                           R"("name":"A name\\,[{\",[{,[{,[{,[{,[{,[{,[{,[{,[{,[{,[{,[{,[{.mkv"})");
    const std::string stats = list(100000, R"({"bytesCompleted":7,"priority":0,"wanted":true})");
    const std::string task = R"([{"fileStats":[)" + stats + R"(],"files":[)" + files + R"(],"hashString":"aa"}])";
    EXPECT_TRUE(ask({found, success(task)}) == task); // not 18 MB of what differs
    for (const char* item : {"0", "[]", R"("\"")", R"({"":{}})"}) {
        expectAnswer({http(200, "[" + list(5000000, item) + "]")}, "the answer is too long (");
    }
}

TEST_F(TorrentEngine, NamesFilesAsTheyLieOnTheDisk) {
    for (const char* path :
         {"Top \U0001F600/b \U0001F3AC.mkv.part", "\u1F60a", "\U0001F60A", "\U00020000", "\U0001F601\u30421"}) {
        sandbox.write(std::string("D/7/") + path, "");
    }
    std::vector<std::pair<std::string, std::string>> names = {
        {"7", "7"},
        {R"("..a/a..b/...")", R"("..a/a..b/...")"},
        {"\"bad \xff\"", R"("bad \ufffd")"}, // the writer's sign
        {R"("Top \u1f600/b \u1f3ac.mkv")", R"("Top \ud83d\ude00/b \ud83c\udfac.mkv")"},
        {R"("Top \u1f600/gone.mkv")", R"("Top \u1f600/gone.mkv")"},
        {R"("\u20000")", R"("\ud840\udc00")"},
        {R"("\u1f60a")", R"("\u1f60a")"}, // both readings are characters; the one on the disk counts
        {R"("\u1f601\u30421")", R"("\ud83d\ude01\u30421")"},
    };
    for (const char* name : {R"("vexodlthumbnail2/x")", R"("a/vexodlthumbnail/x")", R"("vexodlthumbnail.part")"}) {
        names.emplace_back(name, name);
    }
    for (const char* name :
         {R"("vexodlthumbnail")", R"("VEXODLthumbNail/a/x.mkv")", R"("")", R"("/etc/passwd")", R"("..")", R"("../a")",
          R"("a/../../8/a.mkv")", R"("a/./b")", R"("a//b")", R"("a/")", R"("a\u0000b")"}) {
        names.emplace_back(name, "null");
    }
    std::string reported = "[3";
    std::string expected = "[3";
    for (const auto& [name, real] : names) {
        reported += R"(,{"name":)" + name + "}";
        expected += R"(,{"name":)" + real + "}";
    }
    EXPECT_EQ(ask({found, success(R"([{"files":)" + reported + R"(],"hashString":"aa"}])")}),
              R"([{"files":)" + expected + R"(],"hashString":"aa"}])");
}

} // namespace
