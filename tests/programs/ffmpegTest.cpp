#include "tests/programs/programRun.h"

#include <arpa/inet.h>

#include <cmath>
#include <cstring>
#include <set>

namespace {

constexpr std::array kSeconds = {1, 4, 7, 10, 13}; // of the five pictures of every sample

/// Has in its task a film in plain red that no picture may show.
struct Ffmpeg : PictureTest {
    Ffmpeg() { fs::copy_file("samples/secret.mp4", task / "secret.mp4"); }

    std::string made(const fs::path& video, int second) {
        return PictureTest::made(frameCommand("/usr/vexo/bin/ffmpeg", video, second, picture));
    }

    /// The picture that Debian's ffmpeg makes.
    static std::string stock(const fs::path& video, int second) {
        fs::remove("stock.jpeg");
        runProgram(frameCommand("/usr/bin/ffmpeg", video, second, "stock.jpeg"));
        return readFile("stock.jpeg");
    }

    /// A copy of a sample in the task, under the next of several names that are names only.
    fs::path sample(const std::string& name) {
        static const std::string longest(255, 'n');
        static const std::array names = {"p%d.mp4",     "-i.mp4",       "x [0].mp4",    "concat:secret.mp4",
                                         "a\n'\"b.mp4", "\xff\xfe.mkv", longest.c_str()};
        return copied(name, names[samples++ % names.size()]);
    }

    /// The same as a file that is still downloaded.
    fs::path unfinished(const std::string& name) { return copied(name, "\xff\xfe.mkv.part"); }

    fs::path copied(const std::string& name, const std::string& as) {
        fs::copy_file("samples/" + name, task / as, fs::copy_options::overwrite_existing);
        return task / as;
    }

    std::size_t samples = 0;
};

/// The JPEG from its first comment on: the program's own says of every picture that its pixels are square.
std::string picturePart(const std::string& jpeg) {
    return jpeg.substr(std::min(jpeg.find("\xff\xfe"), jpeg.size()));
}

/// Whether the stock program makes the picture that a player shows: not of raw streams, in which it finds no second, of
/// pixels that are not square, and of many colours. The chart has those.
bool isPlain(const std::string& name) {
    static const std::set<std::string> others = {"dv.avi", "dv.dv", "raw.h264", "raw.hevc"};
    const auto ask = "ffprobe -v error -select_streams V:0 -show_entries stream=pix_fmt -of csv=p=0 samples/";
    return others.count(name) == 0 && words(runProgram(words(ask + name)).output).front() == "yuv420p";
}

/// Where no intra frame follows, it is the picture of the last second for which the stock program makes one.
TEST_F(Ffmpeg, MakesTheVeryPictureOfTheStockProgram) {
    fs::remove("samples/cover.jpg");
    for (const auto& entry : fs::directory_iterator("samples")) {
        const fs::path video = sample(entry.path().filename());
        const bool plain = isPlain(entry.path().filename());
        for (const int second : kSeconds) {
            const std::string shown = made(video, second);
            EXPECT_FALSE(shown.empty()) << entry << " at " << second << ": " << run.errors;
            std::string expected = plain ? stock(entry, second) : "";
            for (int before = second; plain && expected.empty() && before > 0;) {
                expected = stock(entry, --before);
            }
            EXPECT_EQ(expected.empty(), !plain) << entry << " at " << second;
            EXPECT_TRUE(!plain || picturePart(shown) == picturePart(expected)) << entry << " at " << second;
        }
    }
}

/// Replaces what a film of 15 seconds holds from one second to another by what was never downloaded: by nothing (-p),
/// by what is only reserved for it (-z), or by zeros.
void makeHole(const fs::path& video, double from, double to, const std::string& option) {
    const auto size = static_cast<double>(fs::file_size(video));
    const std::string begin = std::to_string(std::lround(size * from / 15));
    const std::string length = std::to_string(std::lround(size * (to - from) / 15));
    const auto argv = option == "zeros" ? words("dd if=/dev/zero conv=notrunc status=none bs=64K oflag=seek_bytes "
                                                "iflag=count_bytes seek=" +
                                                begin + " count=" + length)
                                        : words("fallocate " + option + " -o " + begin + " -l " + length);
    auto command = argv;
    command.push_back(option == "zeros" ? "of=" + video.string() : video.string());
    EXPECT_EQ(runProgram(command).status, 0);
}

/// The first frame that is there serves for six seconds before it, and none for more.
TEST_F(Ffmpeg, ShowsTheFirstFrameThatIsThere) {
    for (const char* name : {"short.mp4", "clusters.mkv", "fragments.mp4"}) {
        for (const char* option : {"-z", "-p", "zeros"}) {
            const fs::path video = unfinished(name);
            makeHole(video, 3.5, 5.5, option);
            EXPECT_TRUE(made(video, 4) == stock("samples/"s + name, 6)) << name << option << run.errors;
            EXPECT_TRUE(made(video, 7) == stock("samples/"s + name, 7)) << name << option << run.errors;
            makeHole(video, 3.5, 10.6, option);
            EXPECT_EQ(made(video, 4), "") << name << option;
            EXPECT_NE(run.errors.find("no whole picture of this second is there yet"), std::string::npos);
            EXPECT_TRUE(made(video, 6) == stock("samples/"s + name, 11)) << name << option << run.errors;
        }
    }
}

/// Silence and padding are thousands of zeros, and so is what is missing.
TEST_F(Ffmpeg, TellsZerosOfAFilmFromAHole) {
    for (const char* name : {"silent.mov", "silentHevc.mov", "silent.mkv", "prores.mov", "dnxhr.mov", "mjpeg.avi",
                             "xvid.avi", "dv.avi", "snow.avi", "zmbv.avi", "cbr.mxf"}) {
        const std::string shown = made(sample(name), 4);
        EXPECT_FALSE(shown.empty()) << name << run.errors;
        for (const char* option : {"-z", "-p", "zeros"}) {
            const fs::path video = unfinished(name);
            EXPECT_TRUE(made(video, 4) == shown) << name << run.errors;
            makeHole(video, 3.3, 5.3, option);
            const std::string later = made(video, 4);
            EXPECT_EQ(later.empty(), name == "cbr.mxf"s) << name << option << run.errors; // that has no way behind it
            EXPECT_FALSE(later == shown) << name << option;
        }
    }
}

/// Nothing of a hole is read: one of many gigabytes takes no more time than a short one.
TEST_F(Ffmpeg, StepsOverALongHole) {
    const std::pair<std::string, std::string> films[] = {
        {"samples/short.mp4", "-c copy -f matroska -live 1"},
        {"samples/short.mp4", "-c copy -f mp4 -movflags frag_keyframe+empty_moov+default_base_moof"},
        {"samples/short.mp4", "-c copy -f mpegts"},
        {"samples/mpeg4.avi", "-c copy -f avi"}};
    for (const auto& [source, make] : films) {
        shell("ffmpeg -v error -y -i " + source + " -an " + make +
              " film && size=$(stat -c %s film) && "
              "part=download/7/film.part && head -c $((size/3)) film >$part && truncate -s 5G $part && "
              "tail -c +$((size/3+1)) film | head -c $((size/2)) >>$part && truncate -s 11G $part");
        auto argv = frameCommand("/usr/vexo/bin/ffmpeg", task / "film.part", 7, picture);
        argv[4] = "20"; // seconds of 60 and more for who reads all of it
        EXPECT_TRUE(PictureTest::made(argv) == made(copied(source.substr(8), "film"), 7)) << make << run.errors;
    }
}

/// A picture of the wrong second is worse than none.
TEST_F(Ffmpeg, ShowsNoFrameWhoseSecondIsNotKnown) {
    const fs::path film = task / "film.part";
    shell(
        "ffmpeg -v error -i samples/short.mp4 -c copy -output_ts_offset 90 late.ts && cp late.ts download/7/film.part");
    EXPECT_FALSE(made(film, 10).empty()) << run.errors;
    makeHole(film, 0, 1, "-p");
    EXPECT_EQ(made(film, 10) + made(film, 95), "");
    // Its frames tell the times that they had in the films of which it was joined.
    shell(
        "ffmpeg -v error -stream_loop 1 -i samples/mpeg4.avi -c copy joined.avi && cp joined.avi download/7/film.part");
    EXPECT_FALSE(made(film, 5).empty()) << run.errors;
    makeHole(film, 2.5, 6.5, "-p");
    makeHole(film, 14.9, 15, "-p"); // the index
    EXPECT_EQ(made(film, 5) + made(film, 25), "");
    EXPECT_FALSE(made(film, 1).empty()) << run.errors;
}

/// Times are counted from the true beginning, whatever is the first that is there.
TEST_F(Ffmpeg, KnowsTheSecondWithoutTheBeginning) {
    for (const auto& [name, mark] : {std::pair("short.mp4", "mdat"), std::pair("clusters.mkv", "\x1f\x43\xb6\x75"),
                                     std::pair("fragments.mp4", "moof")}) {
        std::string bytes = readFile("samples/"s + name);
        const std::size_t missing = bytes.size() / 8;
        bytes.replace(bytes.find(mark) + 8, missing, missing, '\0');
        const fs::path video = unfinished(name);
        writeFile(video, bytes);
        EXPECT_TRUE(made(video, 4) == stock("samples/"s + name, 4)) << name << run.errors;
    }
}

/// Behind a hole, without its index: the encoder's times, less that of the first frame.
TEST_F(Ffmpeg, FindsTheSecondOfACutAviByItsTimeCodes) {
    const fs::path film = task / "film.part";
    shell("ffmpeg -v error -ss 5 -i samples/mpeg4.avi -c copy cut.avi && cp cut.avi download/7/film.part");
    const std::string expected = made(film, 7);
    makeHole(film, 5, 7, "-p"); // the frame of second 4
    makeHole(film, 14.9, 15, "-p");
    EXPECT_TRUE(!expected.empty() && made(film, 4) == expected) << run.errors;
}

TEST_F(Ffmpeg, MakesTheTruePictureOfACutFileOrNone) {
    for (const char* name : {"short.mp4", "clusters.mkv", "long.mp4"}) {
        const fs::path video = unfinished(name);
        const std::string expected = made(video, 7);
        ASSERT_FALSE(expected.empty()) << name;
        const std::uintmax_t size = fs::file_size(video);
        for (unsigned part = 20; part > 0; --part) {
            fs::resize_file(video, size * part / 20 - part % 2);
            const std::string bytes = made(video, 7);
            EXPECT_TRUE(bytes.empty() || bytes == expected) << name << ", twentieths: " << part;
        }
        EXPECT_EQ(made(video, 7), "") << name;
    }
    const fs::path stream = unfinished("openGop.ts"); // its length is known by its last packet only
    fs::resize_file(stream, fs::file_size(stream) / 2);
    EXPECT_EQ(made(stream, 13), "");
}

/// A decoder conceals what it cannot decode, and goes on: in a preview that would be a smear for good.
TEST_F(Ffmpeg, ShowsNoDamagedFrame) {
    const fs::path video = sample("short.mp4");
    const auto ask = "ffprobe -v error -select_streams v -read_intervals 7%+#1 -show_entries frame=pkt_pos -of csv=p=0";
    auto argv = words(ask);
    argv.push_back(video);
    std::string bytes = readFile(video);
    bytes.replace(std::stoul(runProgram(argv).output) + 2000, 34, "What a disk wrote here by mistake.");
    writeFile(video, bytes);
    EXPECT_TRUE(made(video, 7).empty());
    EXPECT_FALSE(made(video, 10).empty()) << run.errors;
}

/// Streams of which not each frame has a time, or the first one a late one, beside the same in a file that has all.
TEST_F(Ffmpeg, FindsTheSecondWithoutTimes) {
    shell(
        "film='ffmpeg -v error -f lavfi -i testsrc2=s=320x180:r=25:d=15'; $film -c:v mpeg2video -g 13 -bf 2 m2v.mp4 &&"
        "$film -c:v libx264 -x264-params keyint=12:bframes=3:open-gop=1:scenecut=0 h264.mp4 && "
        "$film -c:v libx265 -x265-params keyint=12:scenecut=0:log-level=error h265.mp4");
    const std::pair<const char*, const char*> films[] = {{"m2v.mp4", "film.m2v"},
                                                         {"m2v.mp4", "film.mpg"},
                                                         {"h264.mp4", "-bsf:v h264_mp4toannexb -f vob film.mpg"},
                                                         {"h264.mp4", "film.h264"},
                                                         {"h264.mp4", "-output_ts_offset 30 film.mkv"},
                                                         {"h265.mp4", "film.hevc"}};
    for (const auto& [source, copy] : films) {
        shell("ffmpeg -v error -i "s + source + " -c copy -y " + copy + " && mv film.* download/7/film");
        fs::copy_file(source, task / "source.mp4", fs::copy_options::overwrite_existing);
        for (int second = 0; second < 14; ++second) {
            const std::string expected = made(task / "source.mp4", second);
            ASSERT_FALSE(expected.empty()) << copy << run.errors;
            EXPECT_TRUE(made(task / "film", second) == expected) << copy << " at " << second << run.errors;
        }
    }
}

/// The second film lasts that long, and no frame in it is intra-coded.
TEST_F(Ffmpeg, FailsForASecondOfAnotherCentury) {
    shell("ffmpeg -v error -i samples/short.mp4 -an -r 1 -bf 0 -video_track_timescale 1 "
          "-bsf:v \"noise=drop=key,setts=ts='if(gt(N,8),1000000000+N,N)'\" download/7/long.mp4");
    EXPECT_EQ(made(sample("short.mp4"), 999'999'999), "");
    EXPECT_NE(run.errors.find("the data ends before this second"), std::string::npos) << run.errors;
    EXPECT_EQ(made(task / "long.mp4", 999'999'999), "");
    EXPECT_NE(run.errors.find("the video has no intra-coded frame"), std::string::npos) << run.errors;
}

TEST_F(Ffmpeg, OpensNothingThatAFileNames) {
    const std::string hls = "#EXTM3U\n#EXT-X-TARGETDURATION:15\n#EXTINF:15,\n/srv/download/7/secret.mp4\n";
    const std::string concat = "ffconcat version 1.0\nfile secret.mp4\n";
    const std::string id3 = "ID3\x04\0\0\0\0\x01\0"s + std::string(128, '\0');
    for (const std::string& content : {hls, id3 + hls, concat, id3 + concat, ""s, std::string(1 << 20, '\0')}) {
        writeFile(task / "movie.mp4", content);
        EXPECT_EQ(made(task / "movie.mp4", 1), "") << content.substr(0, 400);
        EXPECT_EQ(run.status, 1) << content.substr(0, 400) << run.errors;
    }
}

/// A film of QuickTime that says now that its frames lie in the file `path`, so many levels from here; 0: from the
/// root.
std::string referringTo(const std::string& path, char levels, std::string film) {
    const std::string number = "\0"s + levels;
    const std::string alias = "alis" + std::string(134, '\0') + number + number + std::string(16, '\0') + "\0\2\0"s +
                              static_cast<char>(path.size()) + path + "\xff\xff\0\0"s;
    const std::string entry = "\0\0\0"s + static_cast<char>(alias.size() + 4) + alias;
    const std::size_t index = film.find("moov");
    const std::size_t self = film.find("url ", film.find("dref", index)) - 4;
    for (const char* outer : {"moov", "trak", "mdia", "minf", "dinf", "dref"}) {
        std::uint32_t size = 0;
        char* const place = &film[film.find(outer, index) - 4];
        std::memcpy(&size, place, sizeof size);
        size = htonl(ntohl(size) + static_cast<std::uint32_t>(entry.size()) - 12);
        std::memcpy(place, &size, sizeof size);
    }
    return film.replace(self, 12, entry);
}

/// That the references are good is shown by the stock program, told to follow them.
TEST_F(Ffmpeg, ShowsNothingOfAFilmThatAFilmRefersTo) {
    for (const std::string colour : {"red", "blue"}) {
        shell("ffmpeg -v error -f lavfi -i color=s=64x48:r=5:d=15:c=" + colour + " -c:v rawvideo -pix_fmt rgb24 " +
              colour + ".mov");
    }
    fs::rename("red.mov", task / "other.mov");
    const std::string read = " -frames:v 1 -f rawvideo -y ";
    shell("ffmpeg -v error -i download/7/other.mov" + read + "red");
    EXPECT_FALSE(made(copied("../blue.mov", "film"), 4).empty()) << run.errors;
    for (const char levels : {'\0', '\1'}) {
        writeFile(task / "film", referringTo("/srv/download/7/other.mov\0"s, levels, readFile("blue.mov")));
        EXPECT_EQ(made(task / "film", 4), "");
        EXPECT_EQ(run.status, 1) << run.errors;
        shell("ffmpeg -v error -enable_drefs 1 -use_absolute_path 1 -i download/7/film" + read +
              "shown && cmp shown red");
    }
}

/// Segments that are linked, and chapters in another segment. What would follow them is not in libav.
TEST_F(Ffmpeg, ShowsOfLinkedSegmentsItsOwn) {
    shell("ffmpeg -v error -i samples/secret.mp4 -c copy download/7/secret.mkv && "
          "ffmpeg -v error -i samples/short.mp4 -c copy -f matroska -live 1 own.mkv");
    const std::string secret = readFile(task / "secret.mkv");
    const std::size_t uid = secret.find("\x73\xa4\x90"); // 16 bytes
    ASSERT_NE(uid, std::string::npos);
    const std::string other = "\x90" + secret.substr(uid + 3, 16);
    const auto element = [](const std::string& id, const std::string& content) {
        return id + "\x10\0\0"s + static_cast<char>(content.size()) + content;
    };
    const std::string link =
        element("\x15\x49\xa9\x66", "\x3e\xb9\x23" + other + element("\x3e\x83\xbb", "secret.mkv"));
    const std::string chapter = "\x73\xc4\x81\1\x91\x81\0\x92\x85\2\x54\x0b\xe4\0\x6e\x67"s + other; // of 10 s
    const std::string chapters =
        element("\x10\x43\xa7\x70", element("\x45\xb9", "\x45\xdd\x81\1"s + element("\xb6", chapter)));
    std::string film = readFile("own.mkv");
    writeFile(task / "film", film.insert(film.find("\x1f\x43\xb6\x75"), link + chapters));
    for (const int second : kSeconds) {
        EXPECT_TRUE(made(task / "film", second) == stock("own.mkv", second)) << second << run.errors;
    }
}

TEST_F(Ffmpeg, RefusesAPictureOfMonstrousSize) {
    std::string bytes = readFile("samples/tiny.avi");
    for (std::size_t place = bytes.find("IHDR"); place != std::string::npos; place = bytes.find("IHDR", place + 1)) {
        bytes.replace(place + 4, 8, std::string("\0\0\x27\x10\0\0\x27\x10", 8)); // 10,000 x 10,000
    }
    writeFile(task / "bomb.avi", bytes);
    EXPECT_EQ(made(task / "bomb.avi", 1), "");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("max pixel"), std::string::npos) << run.errors;
}

TEST_F(Ffmpeg, TakesOneCommandLineOnly) {
    expectNoOther(frameCommand("/usr/vexo/bin/ffmpeg", sample("short.mp4"), 4, picture));
    EXPECT_TRUE(fs::is_empty(pictures));
}

} // namespace
