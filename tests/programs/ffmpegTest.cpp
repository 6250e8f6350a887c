#include "tests/programs/programRun.h"

#include <cmath>
#include <map>

// Cases stand side by side.
// clang-format off

namespace {

constexpr std::array kSeconds = {1, 4, 7, 10, 13}; // of the five pictures of every sample

std::vector<std::string> commandLine(const std::string& program, const std::string& video, int second,
                                     const std::string& picture) {
    return {program, "-ss", std::to_string(second), "-timelimit", "300", "-i", video, "-vf",
            R"(select=eq(pict_type\,I),scale='if(gt(a,1),min(1080,iw),-1)':'if(gt(a,1),-1,min(1080,ih))')", "-y", "-vframes",
            "1", "-an", "-qscale:v", "1", "-f", "mjpeg", picture};
}

/// Has in its task a film in plain red that no picture may show.
struct Ffmpeg : PictureTest {
    Ffmpeg() { fs::copy_file("samples/secret.mp4", task / "secret.mp4"); }

    std::string made(const fs::path& video, int second) {
        return PictureTest::made(commandLine("/usr/vexo/bin/ffmpeg", video, second, picture));
    }

    /// The picture that Debian's ffmpeg makes.
    static std::string stock(const fs::path& video, int second) {
        fs::remove("stock.jpeg");
        runProgram(commandLine("/usr/bin/ffmpeg", video, second, "stock.jpeg"));
        return readFile("stock.jpeg");
    }

    /// A copy of a sample in the task, under the next of several names that are names only.
    fs::path sample(const std::string& name) {
        static const std::vector<std::string> names = {"p%d.mp4", "-i.mp4", "x [0].mp4", "concat:secret.mp4", "a\n'\"b.mp4",
                                                       "\xff\xfe.mkv.part", std::string(255, 'n')};
        const fs::path copy = task / names[samples++ % names.size()];
        fs::copy_file("samples/" + name, copy, fs::copy_options::overwrite_existing);
        return copy;
    }

    std::size_t samples = 0;
};

TEST_F(Ffmpeg, makesTheVeryPictureOfTheStockProgram) {
    int compared = 0;
    for (const auto& entry : fs::directory_iterator("samples")) {
        const fs::path video = sample(entry.path().filename());
        for (const int second : kSeconds) {
            const std::string expected = stock(entry.path(), second);
            if (entry.path().extension() != ".jpg" && !expected.empty()) {
                EXPECT_TRUE(made(video, second) == expected) << entry.path() << " at " << second << ": " << run.errors;
                ++compared;
            }
        }
    }
    EXPECT_GE(compared, 100);
}

TEST_F(Ffmpeg, takesTheLastIntraFrameWhereNoneFollows) {
    // The last: the second for which the stock program takes that frame.
    for (const auto& [name, second, asAt] : std::vector<std::tuple<std::string, int, int>>{
             {"oneKey.mp4", 1, 0}, {"oneKey.mp4", 13, 0}, {"long.mp4", 13, 10}, {"mpeg4.avi", 13, 12},
             {"tall.mkv", 13, 12}, {"shortPicture.mkv", 4, 2}, {"shortPicture.mkv", 13, 2}}) {
        const std::string expected = stock("samples/" + name, asAt);
        ASSERT_FALSE(expected.empty()) << name;
        EXPECT_TRUE(made(sample(name), second) == expected) << name << " at " << second << ": " << run.errors;
    }
}

/// Replaces what a film of 15 seconds holds around the covered ones by what was never downloaded.
void makeHoles(const fs::path& video, const std::string& covered, const std::string& option) {
    const double bytesPerSecond = static_cast<double>(fs::file_size(video)) / 15;
    const std::string length = std::to_string(std::llround(2 * bytesPerSecond));
    for (std::size_t i = covered.find('x'); i < covered.size(); i = covered.find('x', i + 1)) {
        const std::string begin = std::to_string(std::llround((kSeconds[i] - 0.7) * bytesPerSecond));
        EXPECT_EQ(runProgram({"fallocate", option, "-o", begin, "-l", length, video}).status, 0);
    }
}

TEST_F(Ffmpeg, failsForTheSecondsThatAreNotThereYet) {
    const std::pair<std::string, const char*> films[] = { // preallocated, and sparse
        {"short.mp4", "-z"}, {"short.mp4", "-p"}, {"clusters.mkv", "-z"}, {"clusters.mkv", "-p"}};
    for (const std::string covered : {".....", ".x...", "....x", ".x.x.", "xxxxx"}) {
        for (const auto& [name, option] : films) {
            const fs::path video = sample(name);
            makeHoles(video, covered, option);
            for (std::size_t i = 0; i < kSeconds.size(); ++i) {
                const std::string expected = covered[i] == 'x' ? "" : stock("samples/" + name, kSeconds[i]);
                EXPECT_TRUE(made(video, kSeconds[i]) == expected)
                    << name << " at " << kSeconds[i] << ", holes " << covered << option << ": " << run.errors;
            }
        }
    }
}

TEST_F(Ffmpeg, makesTheTruePictureOfACutFileOrNone) {
    for (const char* name : {"short.mp4", "clusters.mkv", "long.mp4"}) {
        const fs::path video = sample(name);
        const std::string expected = made(video, 7);
        ASSERT_FALSE(expected.empty()) << name;
        const std::uintmax_t size = fs::file_size(video);
        int whole = 0;
        for (unsigned part = 20; part > 0; --part) {
            fs::resize_file(video, size * part / 20 - part % 2);
            const std::string bytes = made(video, 7);
            EXPECT_TRUE(bytes.empty() || bytes == expected) << name << ", twentieths: " << part;
            whole += bytes.empty() ? 0 : 1;
        }
        EXPECT_LT(whole, 20) << name;
    }
}

TEST_F(Ffmpeg, takesNoPictureFromBeforeACut) {
    const fs::path stream = sample("openGop.ts"); // its length is known by its last packet only
    fs::resize_file(stream, fs::file_size(stream) / 2);
    EXPECT_EQ(made(stream, 13), "");
}

TEST_F(Ffmpeg, opensNothingThatAFileNames) {
    const std::string hls = "#EXTM3U\n#EXT-X-TARGETDURATION:15\n#EXTINF:15,\n/srv/download/7/secret.mp4\n#EXT-X-ENDLIST\n";
    const std::string concat = "ffconcat version 1.0\nfile secret.mp4\n";
    const std::string id3 = std::string("ID3\x04\0\0\0\0\x01\0", 10) + std::string(128, '\0');
    const std::string dash =
        "<?xml version='1.0'?>\n<MPD xmlns='urn:mpeg:dash:schema:mpd:2011' type='static' mediaPresentationDuration='PT15S'>"
        "<Period><AdaptationSet mimeType='video/mp4'><Representation id='0' bandwidth='1000'>"
        "<BaseURL>/srv/download/7/secret.mp4</BaseURL></Representation></AdaptationSet></Period></MPD>\n";
    for (const auto& [name, content] : std::map<std::string, std::string>{
             {"HLS", hls}, {"HLS behind ID3", id3 + hls}, {"padded HLS", hls + std::string(1 << 20, '#')},
             {"ffconcat", concat}, {"ffconcat behind ID3", id3 + concat}, {"DASH", dash}, {"nothing", ""},
             {"zeros", std::string(1 << 20, '\0')},
             {"SDP", "v=0\no=- 0 0 IN IP4 127.0.0.1\nc=IN IP4 127.0.0.1\nm=video 5004 RTP/AVP 96\n"}}) {
        writeFile(task / "movie.mp4", content);
        EXPECT_EQ(made(task / "movie.mp4", 1), "") << name;
        EXPECT_EQ(run.status, 1) << name << run.errors;
    }
}

TEST_F(Ffmpeg, refusesAPictureOfMonstrousSize) {
    std::string bytes = readFile("samples/tiny.avi");
    for (std::size_t place = bytes.find("IHDR"); place != std::string::npos; place = bytes.find("IHDR", place + 1)) {
        bytes.replace(place + 4, 8, std::string("\0\0\x27\x10\0\0\x27\x10", 8)); // 10,000 x 10,000
    }
    writeFile(task / "bomb.avi", bytes);
    EXPECT_EQ(made(task / "bomb.avi", 1), "");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("max pixel"), std::string::npos) << run.errors;
}

TEST_F(Ffmpeg, takesOneCommandLineOnly) {
    expectNoOther(commandLine("/usr/vexo/bin/ffmpeg", sample("short.mp4"), 4, picture));
    EXPECT_TRUE(fs::is_empty(pictures));
}

} // namespace
