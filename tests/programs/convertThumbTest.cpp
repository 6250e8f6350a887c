#include "tests/programs/programRun.h"

#include <iostream>

namespace {

constexpr const char* kDecoder = "/usr/vexo/libexec/jpegDecoder";

/// A command where namespaces are refused, in a place that bwrap changes so.
std::vector<std::string> within(const std::string& changes, const std::vector<std::string>& command) {
    std::vector<std::string> argv = words("bwrap --unshare-user --disable-userns --bind / / " + changes);
    argv.insert(argv.end(), command.begin(), command.end());
    return argv;
}

std::vector<std::string> commandLine(const std::string& source, const std::string& target) {
    return thumbCommand("/usr/vexo/bin/convert-thumb", source, target);
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

TEST_F(ConvertThumb, FitsTheFirstPictureIntoItsBox) {
    // What is shown: the size, and red and green of the corner.
    const auto shown = [&](const std::string& photo) {
        shell("cd download/7 && convert ../../sample.jpg " + photo);
        const std::string file = words(photo).back(); // maybe behind the name of a coder
        return identified(madeOf(file.substr(file.find(':') + 1)),
                          "%wx%h %[fx:u.p{w/4,h/4}.r>.8] %[fx:u.p{w/4,h/4}.g>.8]");
    };
    for (const std::string type : {"jpg", "png", "webp", "tiff", "bmp", "heic", "jp2"}) {
        EXPECT_EQ(shown("-scale 3000x2000 large." + type), "1024x683 1 0") << type;
        EXPECT_EQ(shown("-scale 200x9000! tall." + type), "23x1024 1 0") << type;
    }
    EXPECT_EQ(shown("-scale 9000x1! wide.jpg"), "1024x1 1 0");
    EXPECT_EQ(shown("-scale 61x41! odd.bmp"), "61x41 1 0");
    shell("cd download/7 && vips black vast.png 12000 8000");
    EXPECT_EQ(identified(madeOf("vast.png")), "JPEG 1024x683");
    for (const char* photo : {"-size 60x40 xc:blue xc:lime moving.gif", "-size 30x30 xc:blue pages.tiff", "odd.jpe",
                              "-size 60x40 xc:blue moving.webp", "PNG:named.jpg", "JPEG:named.png"}) {
        EXPECT_EQ(shown(photo), "60x40 1 0") << photo;
    }
}

/// On white, whatever the file names as its background; where nothing is seen on that, on grey.
TEST_F(ConvertThumb, ShowsWhatIsToBeSeenOfTransparentPictures) {
    const std::string clear = "-size 60x40 xc:none ";
    const std::string spot = " -draw 'rectangle 15,10 45,30' ";
    const auto shown = [&](const std::string& photo) { // lightness of the corner and of the middle, of 4
        shell("cd download/7 && convert " + photo);
        return identified(madeOf(words(photo).back()), "%[fx:round(4*u.p{3,3}.g)] %[fx:round(4*u.p{30,20}.g)]");
    };
    EXPECT_EQ(shown(clear + "clear.png"), "4 4");
    EXPECT_EQ(shown(clear + "-fill black" + spot + "black.png"), "4 0");
    EXPECT_EQ(shown(clear + "-background black -fill '#808080'" + spot + "back.png"), "4 2");
    for (const char* type : {"png", "webp", "gif", "tiff"}) {
        EXPECT_EQ(shown(clear + "-fill white" + spot + "white." + type), "3 4") << type;
    }
    for (const char* type : {"gif", "webp"}) {
        EXPECT_EQ(shown("-dispose background " + clear + clear + "-size 60x40 xc:black later." + type), "0 0") << type;
    }
}

/// Each file is cut or damaged where nine of ten lines, or fewer, came before.
TEST_F(ConvertThumb, ShowsWhatMissesLittleOfItsLines) {
    const struct {
        const char* options;
        const char* coder;
        bool ends; ///< cut there, else overwritten there
        double enough = .96;
        double tooLittle = .8;
    } photos[] = {
        {"", "jpeg", true}, {"", "jpeg", false}, {"-interlace JPEG", "jpeg", true, .3, .02},
        {"", "png", true},  {"", "png", false},  {"-compress zip -define tiff:rows-per-strip=4", "tiff", false}};
    const char* const upperPart = "%wx%h %[fx:u.p{20,20}.g<.4] %[fx:u.p{150,300}.g<.4]";
    for (const auto& [options, coder, ends, enough, tooLittle] : photos) {
        shell("convert -seed 1 -size 200x400 plasma:red-blue "s + options + " " + coder + ":whole");
        const std::string whole = readFile("whole");
        const std::string upper = identified(madeOfBytes(whole), upperPart);
        for (const double part : {enough, tooLittle}) {
            const auto length = static_cast<std::size_t>(part * static_cast<double>(whole.size()));
            std::string photo = whole.substr(0, ends ? length : whole.size());
            for (std::size_t at = length; at < std::min(photo.size(), length + 99); ++at) {
                photo[at] = at % 2 == 0 ? '\xff' : '\0'; // no code of a JPEG, and no marker
            }
            const std::string shown = madeOfBytes(photo);
            EXPECT_EQ(run.status, part == tooLittle ? 1 : 0) << options << coder << part << run.errors;
            EXPECT_EQ(identified(shown, upperPart), part == tooLittle ? "" : upper) << options << coder << part;
        }
    }
    shell("convert -size 320x240 gradient:red-blue -swirl 90 small.png");
    for (const auto& [small, missing] : {std::pair("sample.jpg", 2), std::pair("small.png", 100)}) {
        const std::string bytes = readFile(small);
        EXPECT_FALSE(madeOfBytes(bytes.substr(0, bytes.size() - missing)).empty()) << small << run.errors;
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
    const std::tuple<const char*, std::string, std::string> bombs[] = {
        {"bomb.gif", ",\0\0\0\0"s, "\x50\xc3\x50\xc3"},
        {"bomb.bmp", "(\0\0\0"s, "\x50\xc3\0\0\x50\xc3\0\0"s},
        {"bomb.jpg", "\xff\xc0\0\x11\x08"s, "\xc3\x50\xc3\x50"},
    };
    for (const auto& [file, before, size] : bombs) {
        std::string bytes = readFile(file);
        bytes.replace(bytes.find(before) + before.size(), size.size(), size);
        EXPECT_EQ(madeOfBytes(bytes), "") << file;
        EXPECT_EQ(run.status, 6) << file << run.errors;
        EXPECT_NE(run.errors.find("400 million pixels"), std::string::npos) << file << run.errors;
        EXPECT_LT(run.peakBytes, 256L << 20) << file;
    }
    const std::string photo = readFile("slow.jpg"); // a last scan that is repeated and says nothing new
    const std::size_t scan = photo.rfind("\xff\xda");
    std::string scans = photo.substr(0, photo.size() - 2);
    for (int i = 0; i < 200; ++i) {
        scans += photo.substr(scan, 20);
    }
    EXPECT_EQ(madeOfBytes(scans), "");
    EXPECT_EQ(run.status, 6) << run.errors;
}

TEST_F(ConvertThumb, TellsByItsExitStatusWhatFailed) {
    shell("cd download && mkdir -p 8/pictures && cp ../sample.jpg 8/a.jpg && cp 8/a.jpg 7 && cd 7 && mkfifo fifo && "
          "ln -s a.jpg in.jpg && ln -s ../8/a.jpg out.jpg && ln -s /srv/download/8 outer && "
          "ln -s ../8/pictures linked && ln -s vexodlthumbnail inner && truncate -s 1073741825 huge");
    const auto expectStatus = [&](int status, const std::string& source, const fs::path& folder) {
        made(commandLine("/srv/download/" + source, task / folder / "3_0.jpeg"));
        EXPECT_EQ(run.status, status) << source << " to " << folder << run.errors;
        EXPECT_EQ(run.errors.find('\x1b'), std::string::npos);
        EXPECT_TRUE(fs::is_empty("/srv/download/8/pictures")) << source;
    };
    expectStatus(0, "7/a.jpg", pictures);
    expectStatus(6, "7/huge", pictures);
    for (const char* source :
         {"7/no\nsuch\x1b\xff", "7/fifo", "7/in.jpg", "7/out.jpg", "7/outer/a.jpg", "7/../8/a.jpg", "8/a.jpg"}) {
        expectStatus(3, source, pictures);
    }
    for (const char* folder : {"none", "linked", "inner"}) {
        expectStatus(4, "7/a.jpg", folder);
    }
}

/// The worker is this program (main() below), and delivers the photo's bytes as its picture, or a part of them.
TEST_F(ConvertThumb, PublishesNothingButAWholePicture) {
    const std::string whole = madeOfBytes(readFile("sample.jpg"));
    const auto delivered = [&](const std::string& bytes) {
        writeFile(task / "photo.jpg", bytes);
        return made(within("--dev /dev --ro-bind " + fs::canonical("/proc/self/exe").string() + ' ' + kDecoder,
                           commandLine(task / "photo.jpg", picture)));
    };
    EXPECT_TRUE(delivered(whole) == whole) << run.errors;
    EXPECT_EQ(delivered(whole.substr(0, whole.size() / 2)), "");
    EXPECT_NE(run.errors.find("wrote no whole picture"), std::string::npos) << run.errors;
    EXPECT_EQ(delivered(whole + "<script>"), "");
    std::string large = whole;
    for (int i = 0; i < 129; ++i) { // comments of 8 MiB
        large.insert(2, "\xff\xfe\xff\xff" + std::string(65533, ' '));
    }
    EXPECT_EQ(delivered(large), "");
}

TEST_F(ConvertThumb, RemovesNoFileButItsOwn) {
    fs::copy_file("sample.jpg", task / "a.jpg");
    shell("cd download/7/vexodlthumbnail && touch .newPicture.txt .newPicture.1.2.jpg .newPicture.1 .newPicture..2 "
          ".newPicture.1. a.newPicture.1.2 && mkdir .newPicture.3.4 3_0.jpeg && mkfifo .newPicture.5.6");
    const std::string others = runProgram({"ls", "-A", pictures}).output;
    shell("touch download/7/vexodlthumbnail/.newPicture.1.2");
    run = runProgram(commandLine(task / "a.jpg", picture));
    EXPECT_EQ(run.status, 4);
    EXPECT_EQ(run.errors, "convert-thumb: /srv/download/7/a.jpg: a directory has the picture's name\n");
    EXPECT_EQ(runProgram({"ls", "-A", pictures}).output, others);
}

TEST_F(ConvertThumb, WantsItsCommandLineAndItsDecoder) {
    fs::copy_file("sample.jpg", task / "a.jpg");
    const std::vector<std::string> right = commandLine(task / "a.jpg", picture);
    expectNoOther(right);
    EXPECT_EQ(runProgram(commandLine(task / "a.jpg", "1.jpeg")).status, 2); // a picture wants a folder of its task
    EXPECT_EQ(made(within("--tmpfs /proc --dev /dev", right)), made(right));
    EXPECT_EQ(made(within("--tmpfs /usr/vexo/libexec", right)), "");
    EXPECT_EQ(run.status, 5);
}

TEST_F(ConvertThumb, LeavesNothingBehindWhenItIsKilled) {
    const auto decoderRuns = [] { return runProgram({"pidof", "jpegDecoder"}).status == 0; };
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

int main(int argc, char** argv) {
    if (argv[0] == std::string(kDecoder)) { // confined and done, if its word counted
        std::cout << std::cin.rdbuf() << std::flush;
        return write(3, "cw", 2) == 2 ? 0 : 1;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
