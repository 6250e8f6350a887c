// Compares what pictures of films show with what was drawn: our program's, stock ffmpeg's and ffmpegthumbnailer's.
//
//   filmColours FOLDER
//
// For the private root. Prints a Markdown table, and leaves the pictures in FOLDER: NAME.ours.jpeg, NAME.stock.jpeg and
// NAME.peer.jpeg.

#include "benchmarks/chart.h"
#include "tests/programs/programRun.h"

#include <cstdio>

namespace {

const fs::path kTask = "/srv/download/7";
const fs::path kFilm = kTask / "film.mkv";
const std::string kH264 = "-c:v libx264 -preset ultrafast -qp 4 -g 1 ";
const std::string kHevc = "-c:v libx265 -preset ultrafast -x265-params qp=4:keyint=1:log-level=error ";
const std::string kMpeg2 = "-c:v mpeg2video -q:v 1 -g 1 ";
constexpr auto kBt709 = "bt709 bt709 bt709 tv";
constexpr auto kBt601 = "smpte170m bt709 bt709 tv";

/// What is printed of a picture.
using Measure = std::function<std::string(const Picture&)>;

std::string text(const char* format, double first, double second) {
    std::array<char, 40> line = {};
    std::snprintf(line.data(), line.size(), format, first, second); // NOLINT(cppcoreguidelines-pro-type-vararg)
    return line.data();
}

Measure colours(bool grey = false) {
    return [grey](const Picture& jpeg) {
        const ColourError error = colourError(jpeg, knownColours(grey));
        return text("%.1f / %.1f", error.mean, error.worst);
    };
}

std::string shape(const Picture& jpeg) {
    return text("%.0f x %.0f", jpeg.width, jpeg.height);
}

std::string linesOff(const Picture& jpeg) {
    return text("%.1f", combing(jpeg), 0);
}

/// Has all three programs make the picture of the film.
void printRow(const fs::path& folder, const std::string& name, const std::string& title, const Measure& measure) {
    const fs::path picture = kTask / "vexodlthumbnail" / "picture.jpeg";
    const auto peer = words("ffmpegthumbnailer -s 0 -q 10 -t 00:00:01 -i " + kFilm.string() + " -o ");
    std::string row = "| " + title;
    for (const std::string program : {"ours", "stock", "peer"}) {
        auto command = frameCommand(program == "ours" ? "/usr/vexo/bin/ffmpeg" : "/usr/bin/ffmpeg", kFilm, 1, picture);
        if (program == "peer") {
            command = peer;
            command.push_back(picture);
        }
        runProgram(command);
        const Picture jpeg(readFile(picture));
        row += " | " + (jpeg.width == 0 ? "none" : measure(jpeg));
        if (jpeg.width != 0) {
            fs::rename(picture, folder / (name + "." + program + ".jpeg"));
        } else {
            fs::remove(picture);
        }
    }
    std::printf("%s |\n", row.c_str());
}

void printRows(const fs::path& folder) {
    const struct {
        const char* name;
        Film film;
        Measure measure;
    } rows[] = {
        {"bt601", {"BT.601", "yuv420p", kBt601, kH264}, colours()},
        {"bt709", {"BT.709", "yuv420p", kBt709, kH264}, colours()},
        {"bt709full", {"BT.709, full range, 10 bits", "yuv420p10le", "bt709 bt709 bt709 pc", kHevc}, colours()},
        {"untagged", {"BT.709, untagged", "yuv420p", "bt709 bt709 bt709 tv untagged", kH264, 1280, 720}, colours()},
        {"bt2020", {"BT.2020", "yuv420p10le", "bt2020nc bt2020 bt2020-10 tv", kHevc}, colours()},
        {"pq", {"PQ", "yuv420p10le", "bt2020nc bt2020 smpte2084 tv", kHevc}, colours()},
        {"hlg", {"HLG", "yuv420p10le", "bt2020nc bt2020 arib-std-b67 tv", kHevc}, colours()},
        {"ycgco", {"YCgCo", "yuv444p", "ycgco bt709 bt709 tv", kH264}, colours()},
        {"rgb", {"RGB", "rgb24", "rgb bt709 bt709 pc", "-c:v huffyuv"}, colours()},
        {"grey", {"grey", "gray", kBt709, "-c:v ffv1 -g 1"}, colours(true)},
        {"dv",
         {"DV 4:1:1", "yuv411p", "smpte170m bt709 bt709 tv untagged", "-c:v dvvideo -r 30000/1001", 720, 480},
         colours()},
        {"dvd", {"16:9 DVD, 1024 x 576", "yuv420p", kBt601, kMpeg2 + "-vf setsar=64/45", 720, 576}, shape},
        {"tall", {"pixels of 1:2, 320 x 400", "yuv420p", kBt709, kH264 + "-vf setsar=1/2"}, shape},
    };
    for (const auto& [name, film, measure] : rows) {
        makeFilm(kFilm, film, knownColours(film.pixels == "gray"));
        printRow(folder, name, film.name, measure);
    }
    const Film interlaced = {"", "yuv420p", kBt601, kMpeg2 + "-flags +ildct+ilme -vf setfield=tff"};
    makeFilm(kFilm, interlaced, {{1, 1, 1}, {0, 0, 0}}, movingEdge(0));
    printRow(folder, "interlaced", "interlaced, lines off by pixels", linesOff);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: filmColours FOLDER\n", stderr);
        return 2;
    }
    fs::create_directories(argv[1]);
    fs::create_directories(kTask / "vexodlthumbnail");
    std::printf("| | our ffmpeg | stock ffmpeg | ffmpegthumbnailer |\n|---|---|---|---|\n");
    std::fflush(stdout);
    printRows(argv[1]);
    fs::remove(kFilm);
    return testing::UnitTest::GetInstance()->Failed() ? 1 : 0;
}
