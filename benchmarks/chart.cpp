#include "benchmarks/chart.h"

#include "tests/programs/programRun.h"

extern "C" {
#include <libavutil/common.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}
#include <lcms2.h>
#include <turbojpeg.h>

#include <cmath>
#include <map>
#include <memory>

namespace {

constexpr int kColumns = 8;
constexpr int kRows = 5;
constexpr std::array kColours = {0xff0000, 0x00ff00, 0x0000ff, 0xffff00, 0x00ffff, 0xff00ff, 0xffffff, 0x000000,
                                 0xbf0000, 0x00bf00, 0x0000bf, 0xbfbf00, 0x00bfbf, 0xbf00bf, 0xbfbfbf, 0x404040,
                                 0xf1c7a5, 0xe0ac84, 0xc68642, 0x8d5524, 0x5c3a21, 0xffdbac, 0xa1665e, 0x3b2219,
                                 0x101010, 0x202020, 0x606060, 0x808080, 0xa0a0a0, 0xe0e0e0, 0x1a0a2e, 0x0b2a12,
                                 0x735244, 0x627a9d, 0x576c43, 0x8580b1, 0x67bdaa, 0xd67e2c, 0x505ba6, 0xc15a63};

double lightOf(double signal) {
    return signal <= 0.04045 ? signal / 12.92 : std::pow((signal + 0.055) / 1.055, 2.4);
}

double srgbSignal(double light) {
    return light <= 0.0031308 ? light * 12.92 : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

/// ITU-R BT.2100, of the light of a screen, 1 being 10,000 cd/m2.
double pqSignal(double light) {
    const double power = std::pow(light, 2610.0 / 16384);
    return std::pow((3424.0 / 4096 + 2413.0 / 128 * power) / (1 + 2392.0 / 128 * power), 2523.0 / 32);
}

/// ITU-R BT.2100, of the light before a camera.
double hlgSignal(double light) {
    return light <= 1.0 / 12 ? std::sqrt(3 * light) : 0.17883277 * std::log(12 * light - 0.28466892) + 0.55991073;
}

/// Luminance in 0..1 and two differences in -0.5..0.5, or the colour itself.
Colour componentsOf(const Colour& signal, const std::string& matrix) {
    const auto [r, g, b] = signal;
    if (matrix == "rgb") {
        return signal;
    }
    if (matrix == "ycgco") {
        return {(r + 2 * g + b) / 4, (2 * g - r - b) / 4, (r - b) / 2};
    }
    static const std::map<std::string, std::pair<double, double>> weights = {
        {"bt709", {0.2126, 0.0722}}, {"smpte170m", {0.299, 0.114}}, {"bt2020nc", {0.2627, 0.0593}}};
    const auto [red, blue] = weights.at(matrix);
    const double y = red * r + (1 - red - blue) * g + blue * b;
    return {y, (b - y) / (2 - 2 * blue), (r - y) / (2 - 2 * red)};
}

using Codes = std::array<std::uint16_t, 3>;

/// ITU-T H.273; the differences of YCgCo have the range of the luminance.
Codes codesOf(const Colour& light, const std::vector<std::string>& tags, int depth) {
    const Colour components = componentsOf(signalOf(light, tags[1], tags[2]), tags[0]);
    const double unit = 1 << (depth - 8);
    const double top = (1 << depth) - 1;
    const bool full = tags[3] == "pc";
    Codes codes = {};
    for (std::size_t i = 0; i < codes.size(); ++i) {
        const bool difference = i > 0 && tags[0] != "rgb";
        const double range = full ? top : unit * (difference && tags[0] != "ycgco" ? 224 : 219);
        const double zero = difference ? 128 * unit : full ? 0 : 16 * unit;
        codes[i] = static_cast<std::uint16_t>(std::clamp(std::round(zero + range * components[i]), 0.0, top));
    }
    return codes;
}

std::string rawFrame(const Film& film, const Chart& chart, const Drawing& drawing, int frame) {
    const AVPixelFormat pixels = av_get_pix_fmt(film.pixels.c_str());
    const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(pixels);
    std::vector<Codes> codes;
    for (const Colour& light : chart) {
        codes.push_back(codesOf(light, words(film.colours), format.comp[0].depth));
    }
    std::string bytes(static_cast<std::size_t>(av_image_get_buffer_size(pixels, film.width, film.height, 1)), '\0');
    std::array<std::uint8_t*, 4> planes = {};
    std::array<int, 4> sizes = {};
    av_image_fill_arrays(planes.data(), sizes.data(), reinterpret_cast<std::uint8_t*>(bytes.data()), pixels, film.width,
                         film.height, 1);
    for (unsigned i = 0; i < format.nb_components; ++i) {
        const bool difference = i > 0 && (format.flags & AV_PIX_FMT_FLAG_RGB) == 0;
        const int across = difference ? format.log2_chroma_w : 0;
        const int down = difference ? format.log2_chroma_h : 0;
        std::vector<std::uint16_t> line(static_cast<std::size_t>(AV_CEIL_RSHIFT(film.width, across)));
        for (int y = 0; y < AV_CEIL_RSHIFT(film.height, down); ++y) {
            for (std::size_t x = 0; x < line.size(); ++x) {
                line[x] = codes[drawing(static_cast<int>(x) << across, y << down, frame)].at(i);
            }
            av_write_image_line(line.data(), planes.data(), sizes.data(), &format, 0, y, static_cast<int>(i),
                                static_cast<int>(line.size()));
        }
    }
    return bytes;
}

cmsCIELab labOf(const Colour& light) {
    const auto [r, g, b] = light;
    const cmsCIEXYZ white = {0.9505, 1, 1.089};
    const cmsCIEXYZ xyz = {0.4124 * r + 0.3576 * g + 0.1805 * b, 0.2126 * r + 0.7152 * g + 0.0722 * b,
                           0.0193 * r + 0.1192 * g + 0.9505 * b};
    cmsCIELab lab = {};
    cmsXYZ2Lab(&white, &lab, &xyz);
    return lab;
}

} // namespace

Colour signalOf(const Colour& light, const std::string& primaries, const std::string& curve) {
    const auto [r, g, b] = light;
    Colour signal = light;
    if (primaries == "bt2020") { // ITU-R BT.2087
        signal = {0.627403896 * r + 0.329283038 * g + 0.043313066 * b,
                  0.069097289 * r + 0.919540395 * g + 0.011362316 * b,
                  0.016391439 * r + 0.088013308 * g + 0.895595253 * b};
    }
    // A screen of HLG with 1000 cd/m2 has a gamma of its own, 1.2, by the luminance.
    const double luminance = 0.203 * (0.2627 * signal[0] + 0.678 * signal[1] + 0.0593 * signal[2]);
    const double camera = 0.203 * std::pow(std::max(luminance, 1e-9), 1 / 1.2 - 1);
    for (double& value : signal) {
        value = curve == "smpte2084"      ? pqSignal(value * 203 / 10000)
                : curve == "arib-std-b67" ? hlgSignal(value * camera)
                                          : srgbSignal(value);
    }
    return signal;
}

Chart knownColours(bool grey) {
    Chart chart;
    for (const int colour : kColours) {
        const int rgb = grey ? 0x060606 * static_cast<int>(chart.size()) : colour;
        chart.push_back(
            {lightOf((rgb >> 16) / 255.0), lightOf((rgb >> 8 & 255) / 255.0), lightOf((rgb & 255) / 255.0)});
    }
    return chart;
}

Drawing movingEdge(int firstField) {
    return [firstField](int x, int y, int frame) -> std::size_t {
        const int field = 2 * frame + (y % 2 == firstField ? 0 : 1);
        return x < 20 + 8 * (field % 30) ? 0 : 1;
    };
}

void makeFilm(const std::string& path, const Film& film, const Chart& chart, const Drawing& drawing) {
    const Drawing patches = [&](int x, int y, int /*frame*/) {
        return static_cast<std::size_t>(y * kRows / film.height * kColumns + x * kColumns / film.width);
    };
    std::string frames;
    for (int i = 0; i < 30; ++i) {
        frames += rawFrame(film, chart, drawing ? drawing : patches, i);
    }
    writeFile("film.raw", frames);
    const auto tags = words(film.colours);
    const std::string told = " -colorspace " + tags[0] + " -color_primaries " + tags[1] + " -color_trc " + tags[2] +
                             " -color_range " + tags[3] + " ";
    const std::string tagged = tags.size() > 4 ? " " : told;
    shell("ffmpeg -v error -nostdin -y -f rawvideo -framerate 25 -pixel_format " + film.pixels + " -video_size " +
          std::to_string(film.width) + "x" + std::to_string(film.height) + tagged + "-i film.raw -f matroska" + tagged +
          film.encoder + " " + path + " 2>film.log || { cat film.log >&2; false; }");
}

Picture::Picture(const std::string& jpeg) {
    const std::unique_ptr<void, decltype(&tjDestroy)> reader(tjInitDecompress(), tjDestroy);
    const auto* bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
    int subsampling = 0;
    int space = 0;
    if (tjDecompressHeader3(reader.get(), bytes, jpeg.size(), &width, &height, &subsampling, &space) == 0) {
        rgb.resize(static_cast<std::size_t>(3 * width * height));
        EXPECT_EQ(tjDecompress2(reader.get(), bytes, jpeg.size(), rgb.data(), width, 0, height, TJPF_RGB, 0), 0);
    }
}

Colour Picture::patch(std::size_t number, Turn turn) const {
    double across = (static_cast<double>(number % kColumns) + 0.5) / kColumns;
    double down = (static_cast<double>(number / kColumns) + 0.5) / kRows;
    if (turn >= Turn::swapped) {
        std::swap(across, down);
    }
    const auto is = [turn](Turn other) { return turn == other; };
    if (is(Turn::mirrored) || is(Turn::around) || is(Turn::right) || is(Turn::swappedAround)) {
        across = 1 - across;
    }
    if (is(Turn::flipped) || is(Turn::around) || is(Turn::left) || is(Turn::swappedAround)) {
        down = 1 - down;
    }
    const int side = std::min(width, height) / 20;
    const int left = static_cast<int>(across * width) - side / 2;
    const int top = static_cast<int>(down * height) - side / 2;
    Colour sum = {};
    for (int i = 0; i < side * side; ++i) {
        const auto pixel = static_cast<std::size_t>((top + i / side) * width + left + i % side);
        for (std::size_t channel = 0; channel < 3; ++channel) {
            sum.at(channel) += rgb[3 * pixel + channel] / (255.0 * side * side);
        }
    }
    return sum;
}

ColourError colourError(const Picture& picture, const Chart& chart, Turn turn) {
    if (picture.width == 0) {
        return {100, 100, 0};
    }
    ColourError error = {};
    for (std::size_t i = 0; i < chart.size(); ++i) {
        const auto [r, g, b] = picture.patch(i, turn);
        const cmsCIELab wanted = labOf(chart[i]);
        const cmsCIELab shown = labOf({lightOf(r), lightOf(g), lightOf(b)});
        const double difference = cmsCIE2000DeltaE(&wanted, &shown, 1, 1, 1);
        error.mean += difference / static_cast<double>(chart.size());
        error.patch = difference > error.worst ? i : error.patch;
        error.worst = std::max(difference, error.worst);
    }
    return error;
}

double combing(const Picture& picture) {
    double most = picture.width == 0 ? 100 : 0;
    double before = -1;
    for (int y = 0; y < picture.height; ++y) {
        double edge = 0;
        for (int x = 0; x < picture.width; ++x) {
            edge += picture.red(x, y) / 255.0;
        }
        if (edge < 1 || edge > picture.width - 1) {
            return 100;
        }
        most = before < 0 ? 0 : std::max(most, std::fabs(edge - before));
        before = edge;
    }
    return most;
}
