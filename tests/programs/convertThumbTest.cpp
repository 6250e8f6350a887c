#include "tests/programs/programRun.h"

#include <csignal>

// Cases stand side by side.
// clang-format off

namespace {

std::vector<std::string> commandLine(const std::string& source, const std::string& target) {
    return {"/usr/vexo/bin/convert-thumb", source, "-thumbnail", "1024x1024>", "-quality", "90", "-strip", "-flatten",
            "-colorspace", "sRGB", target};
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

TEST_F(ConvertThumb, takesEveryNameAsANameOnly) {
    for (const std::string& name :
         {"x [1].jpg"s, "[ab]*.jpg"s, "q?{1,2}.jpg"s, "p%d.jpg"s, "100%.jpg"s, "@x.jpg"s, "msl:x.jpg"s, "c.jpg:d"s,
          "-rf"s, "a'\"\n b\\.jpg"s, "\xff\xfe.jpg"s, std::string(255, 'n'), "in a folder/x[0].jpg"s}) {
        fs::create_directories((task / name).parent_path());
        fs::copy_file("sample.jpg", task / name);
        EXPECT_EQ(identified(madeOf(name)), "JPEG 60x40") << name;
    }
}

TEST_F(ConvertThumb, decodesTheListedFormats) {
    // What is shown: the size, and red and green of the corner.
    for (const auto& [name, options, shown] : std::vector<std::tuple<std::string, std::string, const char*>>{
             {"large.jpg", "-scale 3000x2000", "1024x683 1 0"}, {"wide.jpg", "-scale 9000x100!", "1024x11 1 0"},
             {"progressive.jpg", "-interlace JPEG", "60x40 1 0"}, {"cmyk.jpg", "-colorspace CMYK", "60x40 1 0"},
             {"deep.png", "-depth 16", "60x40 1 0"}, {"clear.png", "-alpha set -channel A -evaluate set 0", "60x40 1 1"},
             {"moving.gif", "-size 60x40 xc:blue xc:lime", "60x40 1 0"}, {"pages.tiff", "-size 30x30 xc:blue", "60x40 1 0"},
             {"moving.webp", "-size 60x40 xc:blue", "60x40 1 0"}, {"a.webp", "-define webp:lossless=true", "60x40 1 0"},
             {"a.bmp", "", "60x40 1 0"}, {"a.heic", "", "60x40 1 0"}, {"a.avif", "", "60x40 1 0"}}) {
        shell("convert sample.jpg " + options + " download/7/" + name);
        EXPECT_EQ(identified(madeOf(name), "%wx%h %[fx:u.p{w/4,h/4}.r>.8] %[fx:u.p{w/4,h/4}.g>.8]"), shown) << name;
    }
}

TEST_F(ConvertThumb, turnsThePictureUpright) {
    char orientation = 0;
    for (const char* stored :
         {"", "-flop", "-rotate 180", "-flip", "-transpose", "-rotate 270", "-transverse", "-rotate 90"}) {
        ++orientation;
        shell("convert sample.jpg "s + stored + " -strip stored.jpg");
        const std::string tag = "\xff\xe1\0\x22""Exif\0\0II*\0\x08\0\0\0\1\0\x12\1\3\0\1\0\0\0"s + orientation + "\0\0\0\0\0\0\0"s;
        const char* const corners = "%wx%h %[fx:u.p{15,10}.g<.2 && u.p{45,10}.g>.8 && u.p{15,30}.g>.8] %[EXIF:*]";
        EXPECT_EQ(identified(madeOfBytes(readFile("stored.jpg").insert(2, tag)), corners), "60x40 1 ") << stored;
    }
}

/// Cut at twenty lengths, and within the last bytes. A file that has its full size but zeros at the end shows that only by an end mark.
TEST_F(ConvertThumb, showsAPhotoCutShortWholeOrNotAtAll) {
    for (const auto& [coder, hasEndMark] : std::vector<std::pair<std::string, bool>>{
             {"jpeg", true}, {"pjpeg", true}, {"png", true}, {"gif", true}, {"bmp", false}, {"tiff", false},
             {"webp", false}, {"heic", false}}) {
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

TEST_F(ConvertThumb, readsNothingThatAPhotoNames) {
    fs::create_directories("/srv/download/8");
    shell("convert -size 99x99 xc:lime download/8/secret.png && cp download/8/secret.png download/7/own.png");
    for (const std::string& bytes :
         {"<svg width='9' height='9'><image href='/srv/download/8/secret.png' width='9' height='9'/></svg>"s,
          "<image><read filename='/srv/download/8/secret.png'/><write filename='/srv/W.png'/></image>"s,
          "viewbox 0 0 99 99 image over 0,0 99,99 '/srv/download/8/secret.png'"s,
          "%!PS-Adobe-3.0\n(/srv/download/8/secret.png) (r) file showpage\n"s,
          "%PDF-1.4\n1 0 obj<</Type/Catalog>>endobj\n"s, "xc:green\n-write\n/srv/W.png"s, "/srv/download/8/secret.png"s,
          "own.png"s, "text:/srv/download/8/secret.png"s, "label:@/etc/passwd"s, "@/etc/passwd"s,
          "#!/bin/sh\ntouch /srv/W.png\n"s, "P6 99 99 255\n"s + std::string(29403, 'x'),
          "id=ImageMagick\ncolumns=99 rows=99\n\f\n:\x1a"s, ""s, std::string(5000, '\0'), "\xff\xd8\xff<svg/>"s,
          "GIF89a/srv/x"s}) {
        EXPECT_EQ(madeOfBytes(bytes), "") << bytes;
        EXPECT_EQ(run.status, 1) << bytes;
        EXPECT_FALSE(fs::exists("/srv/W.png")) << bytes;
    }
}

TEST_F(ConvertThumb, failsOnABombInLittleMemory) {
    struct Case { const char* file; std::string before; std::string size; int status; const char* limit; };
    shell("convert sample.jpg bomb.gif && convert sample.jpg BMP3:bomb.bmp && cp sample.jpg bomb.jpg");
    for (const Case& c : std::vector<Case>{
             {"bomb.gif", ",\0\0\0\0"s, "\x50\xc3\x50\xc3"s, 1, "MemoryAllocationFailed"},
             {"bomb.bmp", "(\0\0\0"s, "\x50\xc3\0\0\x50\xc3\0\0"s, 1, "WidthOrHeightExceedsLimit"},
             {"bomb.jpg", "\xff\xc0\0\x11\x08"s, "\xc3\x50\xc3\x50"s, 6, "400 million pixels"}}) {
        std::string bytes = readFile(c.file);
        bytes.replace(bytes.find(c.before) + c.before.size(), c.size.size(), c.size);
        EXPECT_EQ(madeOfBytes(bytes), "") << c.file;
        EXPECT_EQ(run.status, c.status) << c.file << run.errors;
        EXPECT_NE(run.errors.find(c.limit), std::string::npos) << c.file << run.errors;
        EXPECT_LT(run.peakBytes, 512L << 20) << c.file;
    }
}

TEST_F(ConvertThumb, tellsByItsExitStatusWhatFailed) {
    shell("mkdir -p download/8/pictures && cp sample.jpg download/8/a.jpg && cp sample.jpg download/7/a.jpg && cd "
          "download/7 && mkdir folder && mkfifo fifo && ln -s a.jpg in.jpg && ln -s ../8/a.jpg out.jpg && "
          "ln -s /srv/download/8 outer && ln -s ../8/pictures linked && ln -s vexodlthumbnail inner");
    for (const auto& [source, folder, status] : std::vector<std::tuple<const char*, const char*, int>>{
             {"7/in.jpg", "vexodlthumbnail", 0}, {"7/no\nsuch\x1b\xff", "vexodlthumbnail", 3},
             {"7/fifo", "vexodlthumbnail", 3}, {"7/folder", "vexodlthumbnail", 3}, {"7/out.jpg", "vexodlthumbnail", 3},
             {"7/outer/a.jpg", "vexodlthumbnail", 3}, {"7/../8/a.jpg", "vexodlthumbnail", 3},
             {"8/a.jpg", "vexodlthumbnail", 3}, {"7/a.jpg", "none", 4}, {"7/a.jpg", "linked", 4}, {"7/a.jpg", "inner", 4}}) {
        made(commandLine("/srv/download/"s + source, task / folder / "3_0.jpeg"));
        EXPECT_EQ(run.status, status) << source << " to " << folder << run.errors;
        EXPECT_EQ(run.errors.find('\x1b'), std::string::npos);
        EXPECT_TRUE(fs::is_empty("/srv/download/8/pictures")) << source;
    }
}

TEST_F(ConvertThumb, wantsItsCommandLineAndItsSandbox) {
    fs::copy_file("sample.jpg", task / "a.jpg");
    const std::vector<std::string> right = commandLine(task / "a.jpg", picture);
    expectNoOther(right);
    EXPECT_EQ(runProgram(commandLine(task / "a.jpg", "1.jpeg")).status, 2); // a picture wants a folder of its task
    std::vector<std::string> caged = {"bwrap", "--dev-bind", "/", "/", "--unshare-user", "--disable-userns"};
    caged.insert(caged.end(), right.begin(), right.end());
    EXPECT_EQ(made(caged), "");
    EXPECT_EQ(run.status, 5);
}

bool decoderRuns() { return runProgram({"pidof", "convert-im6.q16"}).status == 0; }

TEST_F(ConvertThumb, leavesNothingBehindWhenItIsKilled) {
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
