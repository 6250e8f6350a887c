#include "tests/host/loopbackEngine.h"
#include "tests/programs/programRun.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <map>
#include <sstream>

namespace {

constexpr const char* kPage = "/srv/download/previews.html";

std::string hexOf(const std::string& bytes) {
    std::ostringstream text;
    for (const unsigned char byte : bytes) {
        text << std::hex << std::setw(2) << std::setfill('0') << static_cast<int>(byte);
    }
    return text.str();
}

struct PreviewPage : testing::Test {
    PreviewPage() {
        setenv("VEXODL_RPC_URL", engine.url.c_str(), 1);
        fs::remove_all("/srv/download");
        fs::remove_all("/srv/database");
        fs::create_directories("/srv/download");
        fs::create_directories("/srv/database");
        const std::string schema = readFile("/usr/src/downloadthumbnail/tests/host/database1.sql");
        sql(schema + "DELETE FROM thumbnail;");
    }

    static void sql(const std::string& text) {
        writeFile("/srv/statements", text);
        shell("sqlite3 /srv/database/thumbnail.db </srv/statements");
    }

    static void addRow(int task, int file, int index, int second, const std::string& picture,
                       const std::string& source) {
        std::ostringstream row;
        row << "INSERT INTO thumbnail VALUES(NULL," << task << ',' << file << ',' << index << ',' << second
            << ",CAST(X'" << hexOf(picture) << "' AS TEXT),CAST(X'" << hexOf(source) << "' AS TEXT),0);";
        sql(row.str());
        const fs::path folder = "/srv/download/" + std::to_string(task) + "/vexodlthumbnail";
        fs::create_directories(folder);
        writeFile(folder / picture, "picture");
    }

    void addTorrent(int task, const std::string& name, int addedDate, int left, int size = 2500000) {
        torrents[task] = R"({"hashString":"h)" + std::to_string(task) + R"(","downloadDir":"/srv/download/)" +
                         std::to_string(task) + R"(","name":")" + name + R"(","addedDate":)" +
                         std::to_string(addedDate) + R"(,"sizeWhenDone":)" + std::to_string(size) + R"(,"haveValid":)" +
                         std::to_string(size - left) + R"(,"leftUntilDone":)" + std::to_string(left) + "}";
    }

    static ProgramRun write() { return runProgram(words("/usr/local/bin/makeThumbnails page")); }

    static std::string text() {
        const ProgramRun run = runProgram(words("/usr/src/downloadthumbnail/tests/programs/pageText "s + kPage));
        EXPECT_EQ(run.errors, "");
        return run.output;
    }

    std::string answer(const std::string& request) {
        std::string all;
        for (const auto& [task, torrent] : torrents) {
            const bool isAskedFor = request.find("\"ids\":[\"h" + std::to_string(task)) != std::string::npos;
            all += isAskedFor || request.find("\"ids\"") == std::string::npos ? "," + torrent : "";
        }
        return success("[" + all.substr(std::min<std::size_t>(all.size(), 1)) + "]");
    }

    std::map<int, std::string> torrents;
    LoopbackEngine engine{[this](const std::string& request) { return answer(request); }};
};

TEST_F(PreviewPage, ShowsTheNewestTaskFirstAndHowMuchIsThere) {
    addTorrent(1, "old", 100, 0);
    addTorrent(2, "new", 300, 1);
    addTorrent(3, "magnet", 200, 0, 0);
    addRow(1, 1, 0, 1, "1_0.jpeg", "old/film.mkv.part");
    addRow(1, 1, 1, 3723, "1_1.jpeg", "old/film.mkv.part");
    addRow(1, 0, 0, 0, "0_0.jpeg", "old/photo.png");
    addRow(9, 0, 0, 0, "0_0.jpeg", "left.png");
    addRow(9, 1, 0, 0, "1_0.jpeg", "lost.png");
    fs::remove("/srv/download/9/vexodlthumbnail/1_0.jpeg");
    const ProgramRun run = write();
    EXPECT_EQ(run.output, kPage + "\n"s) << run.errors;
    EXPECT_EQ(text(), R"(h2 'new'
p 'Task 2: 99 % of 2.5 MB'
p 'No pictures.'
h2 'magnet'
p 'Task 3: no list of files yet'
p 'No pictures.'
h2 'old'
p 'Task 1: complete, 2.5 MB'
h3 'film.mkv'
picture '0:01'
picture '1:02:03'
picture 'photo.png'
h2 'Task 9'
p 'the torrent is gone'
picture 'left.png'
no picture 'lost.png'
)");
    EXPECT_EQ(fs::status(kPage).permissions(), fs::perms(0644));
    shell("touch -d @1 "s + kPage);
    EXPECT_EQ(write().status, 0);
    shell("stat -c %Y "s + kPage + " >/srv/time");
    EXPECT_EQ(readFile("/srv/time"), "1\n"); // the same is not written again
}

TEST_F(PreviewPage, ShowsForeignNamesAsTextAndFindsTheirPictures) {
    struct Name {
        std::string name;
        std::string shown; ///< as Python writes it
    };
    const std::array<Name, 8> names = {{
        {"<img src=x onerror=alert(1)>.mkv", "'<img src=x onerror=alert(1)>.mkv'"},
        {R"("'><script>alert(1)</script>.mkv)", R"('"\'><script>alert(1)<)"
                                                R"(/script>.mkv')"},
        {"</style>&lt;&#x41;%2F..%2f.mkv", "'</style>&lt;&#x41;%2F..%2f.mkv'"},
        {"#a?b=c;d.mkv", "'#a?b=c;d.mkv'"},
        {"\u202E\u2066vkm.mkv", R"('\\xE2\\x80\\xAE\\xE2\\x81\\xA6vkm.mkv')"},
        {"a\nb\r\t\x1B[31m.mkv", R"('a\\x0Ab\\x0D\\x09\\x1B[31m.mkv')"},
        {"\xFF\xC3.mkv", R"('\\xFF\\xC3.mkv')"},
        {std::string(251, 'n') + ".mkv", "'" + std::string(251, 'n') + ".mkv'"},
    }};
    addTorrent(7, R"(<\/h2><img src=x onerror=alert(1)>\u202e\n\"')", 1, 0);
    std::string expected = "h2 '</h2><img src=x onerror=alert(1)>\\\\xE2\\\\x80\\\\xAE\\\\x0A\"\\''\n"
                           "p 'Task 7: complete, 2.5 MB'\n";
    int file = 0;
    for (const Name& name : names) {
        // The pictures, too, have such names, as far as a folder can hold them.
        std::string picture = name.name;
        for (char& character : picture) {
            character = character == '/' ? '|' : character;
        }
        addRow(7, file++, 0, 61, picture, name.name);
        expected += "h3 " + name.shown + "\npicture '1:01'\n";
    }
    addRow(7, file, 0, 61, "plain.jpeg", "photo\"'<b>.png");
    expected += "picture 'photo\"\\'<b>.png'\n";
    const ProgramRun run = write();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(text(), expected);
}

TEST_F(PreviewPage, IsLeftAloneWhereItIsNotOurs) {
    addTorrent(1, "task", 1, 0);
    const std::string outside = "/srv/outside.html";
    const auto left = [](const ProgramRun& run) {
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.errors, "makeThumbnails: "s + kPage + " is not the page of previews, and was left\n");
    };
    writeFile(kPage, "mine");
    left(write());
    EXPECT_EQ(readFile(kPage), "mine");

    ASSERT_TRUE(fs::remove(kPage));
    EXPECT_EQ(write().status, 0);
    fs::rename(kPage, outside);
    const std::string ours = readFile(outside);
    addTorrent(2, "another", 2, 0);
    fs::create_symlink(outside, kPage);
    left(write());
    EXPECT_EQ(readFile(outside), ours);

    fs::remove(kPage);
    fs::create_directory(kPage);
    left(write());
    // A run of all makes its pictures, and tells.
    fs::create_directories("/srv/download/1");
    const ProgramRun run = runProgram(words("/usr/local/bin/makeMissingThumbnails"));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.errors, "makeMissingThumbnails: "s + kPage + " is not the page of previews, and was left\n");
}

TEST_F(PreviewPage, IsWrittenByRunsThatChangeSomethingUnlessItIsOff) {
    const std::string run = "/usr/local/bin/makeMissingThumbnails";
    addTorrent(1, "first", 1, 0);
    fs::create_directories("/srv/download/1");
    EXPECT_EQ(runProgram(words("env VEXODL_PAGE=off " + run)).errors, "");
    EXPECT_FALSE(fs::exists(kPage));
    EXPECT_EQ(runProgram(words("env VEXODL_PAGE=of " + run)).errors,
              "makeMissingThumbnails: VEXODL_PAGE is neither on nor off\n");

    EXPECT_EQ(runProgram(words(run)).errors, "");
    const std::string first = readFile(kPage);
    EXPECT_NE(first.find("first"), std::string::npos);

    // A torrent that is no task yet is nothing to be told of; one that has a folder is.
    addTorrent(2, "second", 2, 0);
    EXPECT_EQ(runProgram(words(run)).status, 0);
    EXPECT_EQ(readFile(kPage), first);
    fs::create_directories("/srv/download/2");
    EXPECT_EQ(runProgram(words(run)).status, 0);
    EXPECT_NE(readFile(kPage).find("second"), std::string::npos);
    EXPECT_FALSE(fs::exists("/srv/download/.previews.html.new"));

    torrents.erase(2);
    fs::remove_all("/srv/download/2");
    EXPECT_EQ(runProgram(words(run)).status, 0);
    EXPECT_EQ(readFile(kPage), first);

    addRow(2, 0, 0, 1, "0_0.jpeg", "a.mkv");
    EXPECT_EQ(runProgram(words("/usr/local/bin/makeThumbnails page")).status, 0);
    EXPECT_NE(readFile(kPage).find("0_0.jpeg"), std::string::npos);
    EXPECT_EQ(runProgram(words("/usr/local/bin/makeThumbnails forget 2")).status, 0);
    EXPECT_EQ(readFile(kPage).find("0_0.jpeg"), std::string::npos);
}

} // namespace
