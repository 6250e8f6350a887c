#include "tests/programs/programRun.h"

namespace {

std::vector<std::string> commandLine(const std::string& source, const std::string& target) {
    auto argv = words("/usr/vexo/bin/convert-thumb -thumbnail 1024x1024> -quality 90 -strip -flatten -colorspace sRGB");
    argv.insert(argv.begin() + 1, source);
    argv.push_back(target);
    return argv;
}

/// What identify tells of a picture.
std::string identified(const std::string& bytes, const char* format = "%m %wx%h") {
    writeFile("taken.jpeg", bytes);
    return runProgram({"identify", "-format", format, "taken.jpeg"}).output;
}

/// The samples lie in the working directory, outside of the task: sample.jpg is red in its upper left quarter and white
/// elsewhere.
struct ConvertThumb : PictureTest {
    static void SetUpTestSuite() {
        shell("convert -size 60x40 xc:white -fill red -draw 'rectangle 0,0 29,19' -quality 95 sample.jpg");
        shell("convert sample.jpg -scale 6000x4000 -interlace JPEG slow.jpg");
    }

    std::string madeOf(const std::string& name) { return made(commandLine(task / name, picture)); }

    /// The picture of a file with these bytes.
    std::string madeOfBytes(const std::string& bytes) {
        writeFile(task / "photo.jpg", bytes);
        return madeOf("photo.jpg");
    }
};

TEST_F(ConvertThumb, TakesEveryNameAsANameOnly) {
    for (const std::string& name : {"p%d.jpg"s, "@x.jpg"s, "msl:x.jpg"s, "-rf"s, "a'\"\n b\\.jpg"s, "\xff\xfe.jpg"s,
                                    std::string(255, 'n'), "in a folder/x[0].jpg"s}) {
        fs::create_directories((task / name).parent_path());
        fs::copy_file("sample.jpg", task / name);
        EXPECT_EQ(identified(madeOf(name)), "JPEG 60x40") << name;
    }
}

TEST_F(ConvertThumb, DecodesTheListedFormats) {
    // What is shown: the size, and red and green of the corner.
    const auto shown = [&](const std::string& photo) {
        shell("cd download/7 && convert ../../sample.jpg " + photo);
        return identified(madeOf(words(photo).back()), "%wx%h %[fx:u.p{w/4,h/4}.r>.8] %[fx:u.p{w/4,h/4}.g>.8]");
    };
    EXPECT_EQ(shown("-scale 3000x2000 large.jpg"), "1024x683 1 0");
    EXPECT_EQ(shown("-scale 9000x100! wide.jpg"), "1024x11 1 0");
    EXPECT_EQ(shown("-alpha set -channel A -evaluate set 0 clear.png"), "60x40 1 1");
    for (const char* photo :
         {"-interlace JPEG progressive.jpg", "-colorspace CMYK cmyk.jpg", "-depth 16 deep.png", "a.bmp", "a.heic",
          "-size 60x40 xc:blue xc:lime moving.gif", "-size 30x30 xc:blue pages.tiff", "a.avif",
          "-size 60x40 xc:blue moving.webp", "-define webp:lossless=true a.webp"}) {
        EXPECT_EQ(shown(photo), "60x40 1 0") << photo;
    }
}

TEST_F(ConvertThumb, TurnsThePictureUpright) {
    shell("convert sample.jpg -rotate 270 -strip stored.jpg");
    // Orientation 6, to be turned by 90 degrees.
    const std::string tag = "\xff\xe1\0\42Exif\0\0II*\0\x08\0\0\0\1\0\x12\1\3\0\1\0\0\0\6\0\0\0\0\0\0\0"s;
    const char* const corners = "%wx%h %[fx:u.p{15,10}.g<.2 && u.p{45,10}.g>.8 && u.p{15,30}.g>.8] %[EXIF:*]";
    EXPECT_EQ(identified(madeOfBytes(readFile("stored.jpg").insert(2, tag)), corners), "60x40 1 ");
}

/// Cut at twenty lengths, and within the last bytes. A file that has its full size but zeros at the end shows that only
/// by an end mark.
TEST_F(ConvertThumb, ShowsAPhotoCutShortWholeOrNotAtAll) {
    const std::vector<std::string> withEndMark = {"jpeg", "pjpeg", "png", "gif"};
    for (const std::string coder : {"jpeg", "pjpeg", "png", "gif", "bmp", "tiff", "webp", "heic"}) {
        const bool hasEndMark = std::count(withEndMark.begin(), withEndMark.end(), coder) != 0;
        shell("convert -seed 1 -size 200x150 plasma:red-blue " + coder + ":whole");
        const std::string bytes = readFile("whole");
        const std::string whole = madeOfBytes(bytes);
        EXPECT_NE(whole, "") << coder;
        for (std::size_t at = 0; at < 25; ++at) {
            const std::size_t length = at < 20 ? bytes.size() * at / 20 : bytes.size() + 19 - at;
            std::string cut = bytes.substr(0, length);
            cut.resize(hasEndMark && at % 2 == 0 ? bytes.size() : length);
            const std::string shown = madeOfBytes(cut);
            EXPECT_TRUE(shown.empty() || shown == whole) << coder << " at " << length;
        }
    }
}

TEST_F(ConvertThumb, ReadsNothingThatAPhotoNames) {
    fs::create_directories("/srv/download/8");
    shell("convert -size 99x99 xc:lime download/8/secret.png");
    for (const std::string& bytes :
         {"<svg width='9' height='9'><image href='/srv/download/8/secret.png' width='9' height='9'/></svg>"s,
          "<image><read filename='/srv/download/8/secret.png'/><write filename='/srv/W.png'/></image>"s,
          "/srv/download/8/secret.png"s, "P6 99 99 255\n"s + std::string(29403, 'x'), ""s, "\xff\xd8\xff<svg/>"s}) {
        EXPECT_EQ(madeOfBytes(bytes), "") << bytes;
        EXPECT_EQ(run.status, 1) << bytes;
        EXPECT_FALSE(fs::exists("/srv/W.png")) << bytes;
    }
}

TEST_F(ConvertThumb, FailsOnABombInLittleMemory) {
    shell("convert sample.jpg bomb.gif && convert sample.jpg BMP3:bomb.bmp && cp sample.jpg bomb.jpg");
    const std::tuple<const char*, std::string, std::string, int, const char*> bombs[] = {
        {"bomb.gif", ",\0\0\0\0"s, "\x50\xc3\x50\xc3", 1, "MemoryAllocationFailed"},
        {"bomb.bmp", "(\0\0\0"s, "\x50\xc3\0\0\x50\xc3\0\0"s, 1, "WidthOrHeightExceedsLimit"},
        {"bomb.jpg", "\xff\xc0\0\x11\x08"s, "\xc3\x50\xc3\x50", 6, "400 million pixels"},
    };
    for (const auto& [file, before, size, status, limit] : bombs) {
        std::string bytes = readFile(file);
        bytes.replace(bytes.find(before) + before.size(), size.size(), size);
        EXPECT_EQ(madeOfBytes(bytes), "") << file;
        EXPECT_EQ(run.status, status) << file << run.errors;
        EXPECT_NE(run.errors.find(limit), std::string::npos) << file << run.errors;
        EXPECT_LT(run.peakBytes, 512L << 20) << file;
    }
}

TEST_F(ConvertThumb, TellsByItsExitStatusWhatFailed) {
    shell("cd download && mkdir -p 8/pictures && cp ../sample.jpg 8/a.jpg && cp 8/a.jpg 7 && cd 7 && mkfifo fifo && "
          "ln -s a.jpg in.jpg && ln -s ../8/a.jpg out.jpg && ln -s /srv/download/8 outer && "
          "ln -s ../8/pictures linked && ln -s vexodlthumbnail inner");
    const auto expectStatus = [&](int status, const std::string& source, const fs::path& folder) {
        made(commandLine("/srv/download/" + source, task / folder / "3_0.jpeg"));
        EXPECT_EQ(run.status, status) << source << " to " << folder << run.errors;
        EXPECT_EQ(run.errors.find('\x1b'), std::string::npos);
        EXPECT_TRUE(fs::is_empty("/srv/download/8/pictures")) << source;
    };
    expectStatus(0, "7/in.jpg", pictures);
    for (const char* source :
         {"7/no\nsuch\x1b\xff", "7/fifo", "7/out.jpg", "7/outer/a.jpg", "7/../8/a.jpg", "8/a.jpg"}) {
        expectStatus(3, source, pictures);
    }
    for (const char* folder : {"none", "linked", "inner"}) {
        expectStatus(4, "7/a.jpg", folder);
    }
}

TEST_F(ConvertThumb, WantsItsCommandLineAndItsSandbox) {
    fs::copy_file("sample.jpg", task / "a.jpg");
    const std::vector<std::string> right = commandLine(task / "a.jpg", picture);
    expectNoOther(right);
    EXPECT_EQ(runProgram(commandLine(task / "a.jpg", "1.jpeg")).status, 2); // a picture wants a folder of its task
    std::vector<std::string> caged = words("bwrap --dev-bind / / --unshare-user --disable-userns");
    caged.insert(caged.end(), right.begin(), right.end());
    EXPECT_EQ(made(caged), "");
    EXPECT_EQ(run.status, 5);
}

TEST_F(ConvertThumb, LeavesNothingBehindWhenItIsKilled) {
    const auto decoderRuns = [] { return runProgram({"pidof", "convert-im6.q16"}).status == 0; };
    fs::copy_file("slow.jpg", task / "slow.jpg");
    for (const int signal : {SIGTERM, SIGKILL}) {
        const pid_t pid = startProgram(commandLine(task / "slow.jpg", picture));
        while (!decoderRuns()) {
            ASSERT_EQ(waitpid(pid, nullptr, WNOHANG), 0);
        }
        kill(pid, signal);
        EXPECT_EQ(awaitProgram(pid).status, 128 + signal);
        for (int wait = 0; wait < 500 && decoderRuns(); ++wait) {
            usleep(10000);
        }
        EXPECT_FALSE(decoderRuns());
        EXPECT_EQ(fs::is_empty(pictures), signal == SIGTERM);
        EXPECT_EQ(identified(madeOfBytes(readFile("sample.jpg"))), "JPEG 60x40");
    }
}

} // namespace
