// Holds the pictures of films to what a player shows.

#include "benchmarks/chart.h"
#include "tests/programs/programRun.h"

#include <map>

namespace {

constexpr auto kBt709 = "bt709 bt709 bt709 tv";
constexpr auto kBt709Full = "bt709 bt709 bt709 pc";
constexpr auto kBt601 = "smpte170m bt709 bt709 tv";
constexpr auto kBt601Full = "smpte170m bt709 bt709 pc";
constexpr auto kRgb = "rgb bt709 bt709 pc";
constexpr auto kPq = "bt2020nc bt2020 smpte2084 tv";
constexpr auto kHlg = "bt2020nc bt2020 arib-std-b67 tv";
constexpr auto kAs709 = "bt709 bt709 bt709 tv untagged";
constexpr auto kAs601 = "smpte170m bt709 bt709 tv untagged";

const std::string kH264 = "-c:v libx264 -preset ultrafast -qp 4 -g 1 ";
const std::string kHevc = "-c:v libx265 -preset ultrafast -x265-params qp=4:keyint=1:log-level=error ";
const std::string kVp9 = "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -crf 4 -b:v 0 -g 1 ";
const std::string kAv1 = "-c:v libsvtav1 -preset 12 -qp 8 -g 1 ";
const std::string kFfv1 = "-c:v ffv1 -g 1 ";
const std::string kMpeg2 = "-c:v mpeg2video -q:v 1 -g 1 ";
const std::string kInterlaced = "-flags +ildct+ilme -vf setfield=tff ";

/// Two rows in 16.16.
const std::map<Turn, std::string> kMatrices = {{Turn::right, "\0\0\0\0\0\1\0\0\0\0\0\0\xff\xff\0\0\0\0\0\0"s},
                                               {Turn::mirrored, "\xff\xff\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\1\0\0"s},
                                               {Turn::flipped, "\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\xff\xff\0\0"s}};

struct FilmChart : PictureTest {
    Picture shown() { return Picture(made(frameCommand("/usr/vexo/bin/ffmpeg", video, 1, picture))); }

    Picture expectColours(const Film& film, double mean, double worst, Turn turn = Turn::none) {
        const Chart chart = knownColours(film.pixels.find("gray") == 0);
        makeFilm(video, film, chart);
        if (turn != Turn::none) {
            patch("tkhd", 44, kMatrices.at(turn));
        }
        Picture jpeg = shown();
        const ColourError error = colourError(jpeg, chart, turn);
        EXPECT_LE(error.mean, mean) << film.name << " " << film.colours << run.errors;
        EXPECT_LE(error.worst, worst) << film.name << " " << film.colours << ", patch " << error.patch;
        return jpeg;
    }

    /// Writes into the index of a film in MP4, which stands at its end.
    void patch(const char* box, std::size_t place, const std::string& bytes) const {
        std::string film = readFile(video);
        writeFile(video, film.replace(film.rfind(box) + place, bytes.size(), bytes));
    }

    const fs::path video = task / "film.mkv";
};

TEST_F(FilmChart, ShowsTheColoursOfStandardRange) {
    for (const Film& film : std::initializer_list<Film>{
             {"H.264", "yuv420p", kBt709, kH264},
             {"H.264", "yuv420p", kBt709Full, kH264},
             {"HEVC 10 bits", "yuv420p10le", kBt709, kHevc},
             {"HEVC 10 bits", "yuv420p10le", kBt709Full, kHevc},
             {"ProRes", "yuv422p10le", kBt709, "-c:v prores_ks -profile:v 3"},
             {"FFV1 4:4:4 10 bits", "yuv444p10le", kBt709Full, kFfv1},
             {"VP9", "yuv420p", kBt709, kVp9},
             {"H.264", "yuv420p", kBt601, kH264},
             {"H.264", "yuv420p", kBt601Full, kH264},
             {"MJPEG 4:2:2", "yuvj422p", kBt601Full, "-c:v mjpeg -q:v 1"},
             {"DV 4:1:1", "yuv411p", kAs601, "-c:v dvvideo -r 30000/1001", 720, 480},
             {"HEVC 10 bits", "yuv420p10le", "bt2020nc bt2020 bt2020-10 tv", kHevc},
             {"HEVC 10 bits", "yuv420p10le", "bt2020nc bt2020 bt2020-10 pc", kHevc},
             {"H.264 4:4:4", "yuv444p", "ycgco bt709 bt709 tv", kH264},
             {"H.264", "yuv420p", "ycgco bt709 bt709 pc", kH264},
             {"H.264", "rgb24", kRgb, "-c:v libx264rgb -preset ultrafast -qp 4 -g 1"},
             {"H.264", "rgb24", "rgb bt709 bt709 tv", "-c:v libx264rgb -preset ultrafast -qp 4 -g 1"},
             {"HuffYUV", "rgb24", "rgb bt709 bt709 pc untagged", "-c:v huffyuv"},
             {"FFV1 16 bits", "gbrp16le", kRgb, kFfv1},
             {"grey H.264", "gray", kBt709, kH264},
             {"grey FFV1", "gray", kBt709, kFfv1},
             {"grey FFV1", "gray", "bt709 bt709 bt709 pc untagged", kFfv1},
             {"grey HEVC 10 bits", "gray10le", kBt709, kHevc},
             {"small", "yuv420p", kAs601, kH264},
             {"both sides at least 720", "yuv420p", kAs709, kH264, 720, 1280},
             {"a side below", "yuv420p", kAs601, kH264, 718, 1280},
             {"width at least 1280", "yuv420p", kAs709, kH264, 1280, 536},
             {"width below", "yuv420p", kAs601, kH264, 1278, 536},
         }) {
        expectColours(film, 1, 3);
    }
}

TEST_F(FilmChart, ShowsTheColoursOfHighRange) {
    for (const char* colours : {kPq, kHlg}) {
        expectColours({"HEVC", "yuv420p10le", colours, kHevc}, 1.5, 5);
        expectColours({"HEVC 4:2:2 12 bits", "yuv422p12le", colours, kHevc}, 1.5, 5);
        expectColours({"AV1", "yuv420p10le", colours, kAv1}, 1.5, 5);
        expectColours({"VP9", "yuv420p10le", colours, kVp9 + "-profile:v 2"}, 1.5, 5);
        expectColours({"VP9 12 bits", "yuv420p12le", colours, kVp9 + "-profile:v 2"}, 1.5, 5);
    }
}

/// White of 400 and 800 cd/m2, then bright colours: no channel overtakes another, none wraps around.
TEST_F(FilmChart, TellsBrightLightsApart) {
    Chart chart = knownColours();
    const Chart lights = {{1.97, 1.97, 1.97}, {3.94, 3.94, 3.94}, {5.8, 2.3, 0.6}, {0.5, 1.2, 3.5}, {0.5, 4, 1.5}};
    std::copy(lights.begin(), lights.end(), chart.begin());
    for (const char* colours : {kPq, kHlg}) {
        const Film film = {"", "yuv420p10le", colours, kHevc};
        makeFilm(video, film, chart);
        const Picture jpeg = shown();
        ASSERT_NE(jpeg.width, 0) << run.errors;
        EXPECT_GE(jpeg.patch(1)[0] - jpeg.patch(0)[0], 3 / 255.0) << colours;
        for (std::size_t i = 2; i < lights.size(); ++i) {
            for (std::size_t a = 0, b = 1; a < 3; ++a, b = (a + 1) % 3) {
                const double ahead = jpeg.patch(i)[a] - jpeg.patch(i)[b];
                EXPECT_GT(lights[i][a] > lights[i][b] ? ahead : -ahead, 3 / 255.0) << colours << ", patch " << i;
            }
        }
    }
}

TEST_F(FilmChart, ShowsDolbyVisionByItsBaseOnly) {
    const Chart chart = knownColours();
    makeFilm(video, {"", "yuv420p10le", kPq, kHevc + "-vf setsar=1 -f mp4"}, chart);
    patch("pasp", 0, "dvcC\1\0\x10\x0d\x10\0\0\0"s); // profile 8, whose base is HDR10
    EXPECT_LE(colourError(shown(), chart).worst, 5) << run.errors;
    patch("dvcC", 0, "dvcC\1\0\x0a\x0d\0\0\0\0"s); // profile 5, which has none
    EXPECT_EQ(shown().width, 0);
    EXPECT_NE(run.errors.find("Dolby Vision"), std::string::npos) << run.errors;
}

TEST_F(FilmChart, HasTheShownShape) {
    const struct {
        Film film;
        int width;
        int height;
        Turn turn = Turn::none;
    } films[] = {
        {{"PAL 16:9", "yuv420p", kBt601, kMpeg2 + "-vf setsar=64/45", 720, 576}, 1024, 576},
        {{"NTSC 16:9", "yuv420p", kBt601, kMpeg2 + "-vf setsar=32/27", 720, 480}, 853, 480},
        {{"NTSC 4:3", "yuv420p", kBt601, kMpeg2 + "-vf setsar=8/9", 720, 480}, 720, 540},
        {{"HDV", "yuv420p", kBt709, kH264 + "-vf setsar=4/3", 1440, 1080}, 1080, 608},
        {{"tall pixels", "yuv420p", kBt709, kH264 + "-vf setsar=1/3", 640, 480}, 480, 1080},
        {{"small", "yuv420p", kBt709, kH264, 160, 100}, 160, 100},
        {{"turned", "yuv420p", kBt709, kH264 + "-f mp4 -vf setsar=64/45", 720, 576}, 576, 1024, Turn::right},
        {{"mirrored", "yuv420p", kBt709, kH264 + "-f mp4"}, 320, 200, Turn::mirrored},
        {{"upside down in a mirror", "yuv420p", kBt709, kH264 + "-f mp4"}, 320, 200, Turn::flipped},
    };
    for (const auto& [film, width, height, turn] : films) {
        const Picture jpeg = expectColours(film, 1, 3, turn);
        EXPECT_NEAR(jpeg.width, width, width / 100.0) << film.name;
        EXPECT_NEAR(jpeg.height, height, height / 100.0) << film.name;
        EXPECT_LE(std::max(jpeg.width, jpeg.height), 1080) << film.name;
        const int right = jpeg.width - 1; // within one patch
        const int low = jpeg.height - 9;
        EXPECT_NEAR(jpeg.red(right, low), jpeg.red(right - 9, low), 9) << film.name;
    }
}

const Chart kWhiteAndBlack = {{1, 1, 1}, {0, 0, 0}};

TEST_F(FilmChart, ShowsOneMomentOfAnInterlacedFilm) {
    for (const Film& film : std::initializer_list<Film>{
             {"MPEG-2", "yuv420p", kBt601, kMpeg2 + kInterlaced, 720, 576},
             {"H.264", "yuv420p", kBt709, kH264 + kInterlaced},
             {"H.264 10 bits", "yuv420p10le", kBt709, kH264 + kInterlaced},
             {"ProRes", "yuv422p10le", kBt709, "-c:v prores_ks " + kInterlaced},
             {"DV", "yuv420p", kAs601, "-c:v dvvideo -flags +ildct+ilme -vf setfield=bff", 720, 576},
         }) {
        makeFilm(video, film, kWhiteAndBlack, movingEdge(film.name == "DV" ? 1 : 0));
        EXPECT_LE(combing(shown()), 1) << film.name << run.errors;
    }
}

TEST_F(FilmChart, KeepsTheLinesOfAFilmThatIsSaidToBeInterlaced) {
    const auto fineLines = [](int x, int y, int /*frame*/) -> std::size_t { return x > 40 && y % 11 == 5 ? 1 : 0; };
    makeFilm(video, {"", "yuv420p", kBt709, kH264 + kInterlaced}, kWhiteAndBlack, fineLines);
    const Picture jpeg = shown();
    ASSERT_EQ(jpeg.height, 200) << run.errors;
    for (int y = 5; y < 200; y += 11) {
        EXPECT_LT(jpeg.red(180, y), 64) << y;
        EXPECT_GT(jpeg.red(180, y + 2), 192) << y;
    }
}

} // namespace
