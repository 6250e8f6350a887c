#include "benchmarks/photoSamples.h"

#include "tests/programs/programRun.h"

#include <cstdio>
#include <jpeglib.h>
#include <lcms2.h>

#include <cmath>
#include <map>
#include <memory>

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 200;

const std::string kConvert = "convert photo.pam ";
const std::string kTagged = kConvert + "-profile photo.icc ";
// For encoders that take a PNG.
const std::string kNoChunks = "-define png:exclude-chunks=gAMA,cHRM ";
const std::string kPng = kConvert + kNoChunks + "png24:photo.png && ";
const std::string kDeepPng = kConvert + kNoChunks + "png48:photo.png && ";
const std::string kTaggedPng = kTagged + kNoChunks + "png24:photo.png && ";
const std::string kHeif = "heif-enc photo.png -o photo -q 100 ";
const std::string kHeic = kHeif + "-p preset=ultrafast ";
const std::string kAvif = "avifenc -s 9 --min 0 --max 6 photo.png photo ";
const std::string kJxl = "cjxl photo.png photo -e 3 -d ";

/// heif-enc leaves it out of the file, and stores luminance and differences by BT.601 in any case.
std::string nclx(int primaries, int curve) {
    std::array<char, 100> command = {};
    std::snprintf(command.data(), command.size(), // NOLINT(cppcoreguidelines-pro-type-vararg)
                  "&& printf '\\0\\0\\0\\023colrnclx\\0\\%o\\0\\%o\\0\\6\\200' >photo.box",
                  static_cast<unsigned>(primaries), static_cast<unsigned>(curve));
    return command.data();
}

using Profile = std::unique_ptr<void, decltype(&cmsCloseProfile)>;
using Values = std::vector<double>; ///< of a colour's channels, in 0..1

Profile rgbProfile(const cmsCIExyY& white, const cmsCIExyYTRIPLE& primaries, cmsToneCurve* curve) {
    cmsToneCurve* const curves[] = {curve, curve, curve};
    Profile profile(cmsCreateRGBProfile(&white, &primaries, curves), cmsCloseProfile);
    cmsFreeToneCurve(curve);
    return profile;
}

Profile greyProfile(cmsToneCurve* curve) {
    Profile profile(cmsCreateGrayProfile(cmsD50_xyY(), curve), cmsCloseProfile);
    cmsFreeToneCurve(curve);
    return profile;
}

/// A dot of ink looks larger than it is, by 20 % of the paper at a half.
cmsToneCurve* dotGain() {
    std::vector<std::uint16_t> light(4096);
    for (std::size_t i = 0; i < light.size(); ++i) {
        const double ink = 1 - static_cast<double>(i) / static_cast<double>(light.size() - 1);
        light[i] = static_cast<std::uint16_t>(std::lround(65535 * (1 - ink - 0.8 * ink * (1 - ink))));
    }
    return cmsBuildTabulatedToneCurve16(nullptr, static_cast<cmsUInt32Number>(light.size()), light.data());
}

Profile profileOf(const std::string& colours) {
    const cmsCIExyY d65 = {0.3127, 0.329, 1};
    const cmsCIExyY d50 = {0.3457, 0.3585, 1};
    if (colours == "P3") {
        const cmsFloat64Number srgb[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
        return rgbProfile(d65, {{0.68, 0.32, 1}, {0.265, 0.69, 1}, {0.15, 0.06, 1}},
                          cmsBuildParametricToneCurve(nullptr, 4, srgb));
    }
    if (colours == "AdobeRGB") {
        return rgbProfile(d65, {{0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1}},
                          cmsBuildGamma(nullptr, 563.0 / 256));
    }
    if (colours == "ProPhoto") {
        return rgbProfile(d50, {{0.7347, 0.2653, 1}, {0.1596, 0.8404, 1}, {0.0366, 0.0001, 1}},
                          cmsBuildGamma(nullptr, 1.8));
    }
    if (colours == "gamma22" || colours == "dotGain") {
        return greyProfile(colours == "dotGain" ? dotGain() : cmsBuildGamma(nullptr, 2.2));
    }
    if (colours == "light") {
        return rgbProfile(d65, {{0.64, 0.33, 1}, {0.3, 0.6, 1}, {0.15, 0.06, 1}}, cmsBuildGamma(nullptr, 1));
    }
    if (colours == "CMYK") { // libvips has one
        shell("[ -e cmyk.icc ] || { vips black cmyk.v 1 1 --bands 4 && vips tiffsave cmyk.v cmyk.tif --profile cmyk && "
              "convert cmyk.tif cmyk.icc; }");
        return {cmsOpenProfileFromFile("cmyk.icc", "r"), cmsCloseProfile};
    }
    return {cmsCreate_sRGBProfile(), cmsCloseProfile};
}

/// How values of a kind of profile are told to lcms, and what the most of them is there.
std::pair<cmsUInt32Number, double> formatOf(const Profile& profile) {
    switch (cmsGetColorSpace(profile.get())) {
    case cmsSigCmykData:
        return {TYPE_CMYK_DBL, 100};
    case cmsSigGrayData:
        return {TYPE_GRAY_DBL, 1};
    default:
        return {TYPE_RGB_DBL, 1};
    }
}

Values converted(Values values, const Profile& from, const Profile& to) {
    const auto [oldFormat, oldMost] = formatOf(from);
    const auto [newFormat, newMost] = formatOf(to);
    for (double& value : values) {
        value *= oldMost;
    }
    const std::unique_ptr<void, decltype(&cmsDeleteTransform)> transform(
        cmsCreateTransform(from.get(), oldFormat, to.get(), newFormat, INTENT_RELATIVE_COLORIMETRIC,
                           cmsFLAGS_NOOPTIMIZE | cmsFLAGS_BLACKPOINTCOMPENSATION),
        cmsDeleteTransform);
    Values result(T_CHANNELS(newFormat));
    cmsDoTransform(transform.get(), values.data(), result.data(), 1);
    for (double& value : result) {
        value /= newMost;
    }
    return result;
}

Values valuesOf(const Colour& light, const std::string& colours, const Profile& profile) {
    static const Profile srgb = profileOf("sRGB");
    if (colours == "PQ" || colours == "HLG") {
        const auto [r, g, b] = signalOf(light, "bt2020", colours == "PQ" ? "smpte2084" : "arib-std-b67");
        return {r, g, b};
    }
    const auto [r, g, b] = signalOf(light, "bt709", "iec61966-2-1");
    if (colours == "inks") {
        const double white = std::max({r, g, b});
        const auto ink = [white](double value) { return white > 0 ? 1 - value / white : 0; };
        return {ink(r), ink(g), ink(b), 1 - white};
    }
    if (colours == "grey") {
        return {r};
    }
    return colours == "sRGB" ? Values{r, g, b} : converted({r, g, b}, srgb, profile);
}

/// The number of a chart's patch at each pixel of a photo, line by line.
std::vector<std::size_t> patches() {
    std::vector<std::size_t> numbers;
    for (std::size_t i = 0; i < kWidth * kHeight; ++i) {
        numbers.push_back(i / kWidth / 40 * 8 + i % kWidth / 40);
    }
    return numbers;
}

/// Rounds to the depth, and puts that into bytes, or into two each.
std::string samplesOf(const std::vector<Values>& colours, int depth) {
    const double top = (1 << depth) - 1;
    std::string bytes;
    for (const std::size_t patch : patches()) {
        for (const double value : colours[patch]) {
            const double level = std::round(std::clamp(value, 0.0, 1.0) * top) / top;
            const auto sample = static_cast<unsigned>(std::lround(level * (depth > 8 ? 65535 : 255)));
            if (depth > 8) {
                bytes += static_cast<char>(sample >> 8);
            }
            bytes += static_cast<char>(sample);
        }
    }
    return bytes;
}

/// Exif that tells an orientation only, in either order of bytes.
std::string exif(Turn turn) {
    const auto number = static_cast<char>(turn);
    if (number % 2 == 0) {
        return "Exif\0\0MM\0*\0\0\0\x08\0\1\1\x12\0\3\0\0\0\1\0"s + number + "\0\0\0\0\0\0"s;
    }
    return "Exif\0\0II*\0\x08\0\0\0\1\0\x12\1\3\0\1\0\0\0"s + number + "\0\0\0\0\0\0\0"s;
}

struct Jpeg {
    explicit Jpeg(const std::string& path) : file(std::fopen(path.c_str(), "wb")) {
        info.err = jpeg_std_error(&errors);
        jpeg_create_compress(&info);
        jpeg_stdio_dest(&info, file);
    }
    Jpeg(const Jpeg&) = delete;
    Jpeg& operator=(const Jpeg&) = delete;
    ~Jpeg() {
        jpeg_destroy_compress(&info);
        std::fclose(file);
    }

    std::FILE* file;
    jpeg_error_mgr errors = {};
    jpeg_compress_struct info = {};
};

void configure(jpeg_compress_struct& info, int channels, const std::vector<std::string>& options) {
    const auto has = [&](const char* word) { return std::count(options.begin(), options.end(), word) != 0; };
    info.image_width = kWidth;
    info.image_height = kHeight;
    info.input_components = channels;
    info.in_color_space = channels == 1 ? JCS_GRAYSCALE : channels == 3 ? JCS_RGB : JCS_CMYK;
    jpeg_set_defaults(&info);
    if (has("rgb") || has("ycck")) {
        jpeg_set_colorspace(&info, has("rgb") ? JCS_RGB : JCS_YCCK);
    }
    jpeg_set_quality(&info, 100, TRUE);
    info.arith_code = has("arithmetic") ? TRUE : FALSE;
    if (has("plain")) {
        info.write_Adobe_marker = FALSE;
    }
    for (const std::string& word : options) {
        if (word.size() == 3 && word[1] == 'x') {
            info.comp_info[0].h_samp_factor = word[0] - '0';
            info.comp_info[0].v_samp_factor = word[2] - '0';
        }
    }
    if (has("progressive")) {
        jpeg_simple_progression(&info);
    }
}

void writeJpeg(const std::string& path, std::string samples, const std::string& encoder, Turn turn = Turn::none) {
    const auto options = words(encoder);
    const int channels = static_cast<int>(samples.size()) / kWidth / kHeight;
    Jpeg jpeg(path);
    configure(jpeg.info, channels, options);
    jpeg_start_compress(&jpeg.info, TRUE);
    if (turn != Turn::none) {
        for (const std::string& tag : {"http://ns.adobe.com/xap/1.0/\0<x/>"s, exif(turn)}) {
            jpeg_write_marker(&jpeg.info, JPEG_APP0 + 1, reinterpret_cast<const JOCTET*>(tag.data()),
                              static_cast<unsigned>(tag.size()));
        }
    }
    if (options.back() == "icc") {
        const std::string profile = readFile("photo.icc");
        jpeg_write_icc_profile(&jpeg.info, reinterpret_cast<const JOCTET*>(profile.data()),
                               static_cast<unsigned>(profile.size()));
    }
    if (channels == 4 && jpeg.info.write_Adobe_marker != 0) { // ink is stored the other way round
        std::transform(samples.begin(), samples.end(), samples.begin(), [](char ink) { return ~ink; });
    }
    for (auto line = samples.begin(); line != samples.end(); line += kWidth * channels) {
        auto* row = reinterpret_cast<JSAMPROW>(&*line);
        jpeg_write_scanlines(&jpeg.info, &row, 1);
    }
    jpeg_finish_compress(&jpeg.info);
}

/// Adds to a number of four bytes.
void add(std::string& bytes, std::size_t at, std::size_t more) {
    std::size_t number = more;
    for (std::size_t i = 0; i < 4; ++i) {
        number += static_cast<std::size_t>(static_cast<unsigned char>(bytes.at(at + i))) << (24 - 8 * i);
    }
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[at + i] = static_cast<char>(number >> (24 - 8 * i));
    }
}

/// Puts photo.icc into a JPEG 2000 file in the place of the number that stands for sRGB.
void giveProfile(const std::string& path) {
    std::string file = readFile(path);
    const std::string profile = readFile("photo.icc");
    const std::size_t box = file.find("colr");
    file.replace(box + 4, 7, "\2\0\0"s + profile);
    add(file, box - 4, profile.size() - 4);
    add(file, file.find("jp2h") - 4, profile.size() - 4);
    writeFile(path, file);
}

/// Gives the picture of a HEIC file of heif-enc more properties, each a box.
void giveProperties(const std::string& path, const std::vector<std::string>& boxes) {
    std::string file = readFile(path);
    const std::size_t properties = file.find("ipco");
    const std::size_t uses = file.find("ipma"); // of one item, which uses each box once
    const auto before = static_cast<std::size_t>(file[uses + 14]);
    std::string added;
    std::string used;
    for (const std::string& box : boxes) {
        added += box;
        used += static_cast<char>(0x81 + before + used.size());
    }
    file.insert(uses + 15 + before, used);
    file[uses + 14] = static_cast<char>(before + used.size());
    add(file, uses - 4, used.size());
    file.insert(uses - 4, added);
    add(file, properties - 4, added.size());
    for (const char* around : {"iprp", "meta"}) {
        add(file, file.find(around) - 4, added.size() + used.size());
    }
    add(file, file.find("iloc") + 16, added.size() + used.size());
    writeFile(path, file);
}

/// Quarter turns to the left, then a mirror: 1 swaps left and right, 0 top and bottom.
std::vector<std::string> turningBoxes(Turn turn) {
    const auto left = [](int quarters) { return "\0\0\0\x09irot"s + static_cast<char>(quarters); };
    const auto mirror = [](int way) { return "\0\0\0\x09imir"s + static_cast<char>(way); };
    switch (turn) {
    case Turn::none:
        return {};
    case Turn::mirrored:
        return {mirror(1)};
    case Turn::around:
        return {left(2)};
    case Turn::flipped:
        return {mirror(0)};
    case Turn::swapped:
        return {left(1), mirror(0)};
    case Turn::right:
        return {left(3)};
    case Turn::swappedAround:
        return {left(1), mirror(1)};
    case Turn::left:
        return {left(1)};
    }
    return {};
}

void runEncoder(const std::string& command, const std::string& path) {
    shell("{ " + command + "; } >photo.log 2>&1 || { cat photo.log >&2; false; }");
    if (fs::exists("photo.box")) {
        giveProperties("photo", {readFile("photo.box")});
        fs::remove("photo.box");
    }
    fs::rename("photo", path);
}

} // namespace

const std::vector<Photo>& knownPhotos() {
    static const std::vector<Photo> photos = {
        {"JPEG 4:4:4", "sRGB", 8, "jpeg 1x1"},
        {"JPEG 4:2:2", "sRGB", 8, "jpeg 2x1"},
        {"JPEG 4:2:0", "sRGB", 8, "jpeg 2x2"},
        {"JPEG 4:4:0", "sRGB", 8, "jpeg 1x2"},
        {"JPEG 4:1:1", "sRGB", 8, "jpeg 4x1"},
        {"JPEG, progressive", "sRGB", 8, "jpeg 2x2 progressive"},
        {"JPEG, arithmetic coding", "sRGB", 8, "jpeg 1x1 arithmetic"},
        {"JPEG stored as RGB", "sRGB", 8, "jpeg rgb"},
        {"JPEG, sRGB profile", "sRGB", 8, "jpeg 2x2 icc"},
        {"JPEG, Display P3", "P3", 8, "jpeg 2x2 icc"},
        {"JPEG, Adobe RGB", "AdobeRGB", 8, "jpeg 1x1 icc"},
        {"JPEG, ProPhoto", "ProPhoto", 8, "jpeg 1x1 progressive icc"},
        {"JPEG, grey", "grey", 8, "jpeg"},
        {"JPEG, grey, gamma 2.2", "gamma22", 8, "jpeg icc"},
        {"JPEG, grey, dot gain", "dotGain", 8, "jpeg icc"},
        {"JPEG, CMYK", "CMYK", 8, "jpeg cmyk icc"},
        {"JPEG, YCCK", "CMYK", 8, "jpeg ycck icc"},
        {"JPEG, CMYK without a profile", "inks", 8, "jpeg cmyk"},
        {"JPEG, YCCK without a profile", "inks", 8, "jpeg ycck"},
        {"JPEG, CMYK, not inverted", "inks", 8, "jpeg cmyk plain"},

        {"PNG", "sRGB", 8, kConvert + "png24:photo"},
        {"PNG, 16 bits", "sRGB", 16, kConvert + "png48:photo"},
        {"PNG, interlaced", "sRGB", 8, kConvert + "-interlace PNG png24:photo"},
        {"PNG, palette", "sRGB", 8, kConvert + "png8:photo"},
        {"PNG with alpha", "sRGB", 8, kConvert + "-alpha set png32:photo"},
        {"PNG, grey", "grey", 8, kConvert + "png:photo"},
        {"PNG, grey, 16 bits", "grey", 16, kConvert + "png:photo"},
        {"PNG, grey, gamma 2.2", "gamma22", 8, kTagged + "png:photo"},
        {"PNG, Display P3", "P3", 8, kTagged + "png24:photo"},
        {"PNG, Adobe RGB, 16 bits", "AdobeRGB", 16, kTagged + "png48:photo"},
        {"PNG, Display P3 with alpha", "P3", 8, kTagged + "-alpha set png32:photo"},

        {"WebP", "sRGB", 8, kConvert + "-quality 99 webp:photo"},
        {"WebP, lossless", "sRGB", 8, kConvert + "-define webp:lossless=true webp:photo"},
        {"WebP, Display P3", "P3", 8, kTagged + "-define webp:lossless=true webp:photo"},

        {"TIFF", "sRGB", 8, kConvert + "-compress None tiff:photo"},
        {"TIFF, 16 bits, LZW", "sRGB", 16, kConvert + "-compress LZW tiff:photo"},
        {"TIFF, big-endian, 16 bits", "sRGB", 16, kConvert + "-endian MSB -compress Zip tiff:photo"},
        {"TIFF, tiles", "sRGB", 8, kConvert + "-define tiff:tile-geometry=64x64 tiff:photo"},
        {"BigTIFF", "sRGB", 8, kConvert + "tiff64:photo"},
        {"TIFF, palette", "sRGB", 8, kConvert + "-type Palette tiff:photo"},
        {"TIFF, grey", "grey", 8, kConvert + "tiff:photo"},
        {"TIFF, Display P3", "P3", 16, kTagged + "tiff:photo"},
        {"TIFF, CMYK", "CMYK", 8, kTagged + "tiff:photo"},

        {"GIF", "sRGB", 8, kConvert + "gif:photo"},
        {"BMP, 24 bits", "sRGB", 8, kConvert + "bmp3:photo"},
        {"BMP, 32 bits", "sRGB", 8, kConvert + "-alpha set bmp:photo"},
        {"BMP, palette", "sRGB", 8, kConvert + "-type Palette bmp3:photo"},

        {"HEIC", "sRGB", 8, kPng + kHeic},
        {"HEIC, brand hevx", "sRGB", 8, kPng + kHeic + "&& printf hevx | dd of=photo bs=1 seek=8 conv=notrunc"},
        {"HEIC, Display P3 profile", "P3", 8, kTaggedPng + kHeic},
        {"HEIC, Display P3", "P3", 8, kPng + kHeic + nclx(12, 13)},
        {"HEIC, PQ", "PQ", 10, kDeepPng + kHeic + nclx(9, 16)},
        {"HEIC, HLG", "HLG", 10, kDeepPng + kHeic + nclx(9, 18)},

        {"AVIF", "sRGB", 8, kPng + kAvif},
        {"AVIF, 4:2:0, limited range", "sRGB", 8, kPng + kAvif + "-y 420 -r limited --cicp 1/13/1"},
        {"AVIF, stored as RGB", "sRGB", 8, kPng + kAvif + "--cicp 1/13/0"},
        {"AVIF, 12 bits", "sRGB", 12, kDeepPng + kAvif + "-d 12"},
        {"AVIF, Display P3 profile", "P3", 8, kTaggedPng + kAvif},
        {"AVIF, Display P3", "P3", 10, kDeepPng + kAvif + "-d 10 --cicp 12/13/6"},
        {"AVIF, PQ", "PQ", 10, kDeepPng + kAvif + "-d 10 --cicp 9/16/9"},
        {"AVIF, PQ, 12 bits, limited range", "PQ", 12, kDeepPng + kAvif + "-d 12 -r limited --cicp 9/16/9"},
        {"AVIF, HLG", "HLG", 10, kDeepPng + kAvif + "-d 10 --cicp 9/18/9"},

        {"JPEG XL", "sRGB", 8, kPng + kJxl + "0"},
        {"JPEG XL, lossy", "sRGB", 8, kPng + kJxl + "0.2"},
        {"JPEG XL, 16 bits", "sRGB", 16, kDeepPng + kJxl + "0"},
        {"JPEG XL, grey", "grey", 8, kConvert + kNoChunks + "png:photo.png && " + kJxl + "0"},
        {"JPEG XL, Display P3", "P3", 8, kTaggedPng + kJxl + "0"},
        {"JPEG XL, Display P3, lossy", "P3", 8, kTaggedPng + kJxl + "0.2"},

        {"JPEG 2000", "sRGB", 8, kConvert + "-quality 100 jp2:photo"},
        {"JPEG 2000, Display P3", "P3", 8, kConvert + "-quality 100 jp2:photo"},
        {"JPEG 2000, grey", "grey", 8, kConvert + "-quality 100 jp2:photo"},
        {"JPEG 2000, length left out", "sRGB", 8, kConvert + "-quality 100 jp2:photo"},
    };
    return photos;
}

Chart chartOf(const Photo& photo) {
    Chart chart = knownColours(photo.colours == "grey" || photo.colours == "gamma22" || photo.colours == "dotGain");
    if (photo.colours == "CMYK") { // no ink is as bright as some of them
        const Profile inks = profileOf("CMYK");
        for (Colour& light : chart) {
            const Values shown = converted(valuesOf(light, "CMYK", inks), inks, profileOf("light"));
            std::transform(shown.begin(), shown.end(), light.begin(), [](double x) { return std::clamp(x, 0.0, 1.0); });
        }
    }
    return chart;
}

void makePhoto(const std::string& path, const Photo& photo) {
    const Profile profile = profileOf(photo.colours);
    if (photo.colours == "CMYK") {
        fs::copy_file("cmyk.icc", "photo.icc", fs::copy_options::overwrite_existing);
    } else {
        cmsSaveProfileToFile(profile.get(), "photo.icc");
    }
    std::vector<Values> colours;
    for (const Colour& light : chartOf(photo)) {
        colours.push_back(valuesOf(light, photo.colours, profile));
    }
    const std::string samples = samplesOf(colours, photo.depth);
    if (photo.encoder.compare(0, 4, "jpeg") == 0) {
        writeJpeg(path, samples, photo.encoder);
        return;
    }
    const auto channels = colours[0].size();
    const std::string deep = photo.depth > 8 ? "65535" : "255";
    writeFile("photo.pam", "P7\nWIDTH 320\nHEIGHT 200\nDEPTH " + std::to_string(channels) + "\nMAXVAL " + deep +
                               "\nTUPLTYPE " +
                               (channels == 1   ? "GRAYSCALE"
                                : channels == 3 ? "RGB"
                                                : "CMYK") +
                               "\nENDHDR\n" + samples);
    runEncoder(photo.encoder, path);
    if (photo.encoder.find("jp2:") != std::string::npos && photo.colours == "P3") { // convert leaves it out
        giveProfile(path);
    }
    if (photo.name == "JPEG 2000, length left out") { // of the last box: it reaches to the end
        std::string file = readFile(path);
        writeFile(path, file.replace(file.find("jp2c") - 4, 4, 4, '\0'));
    }
}

const std::vector<std::string>& turningFormats() {
    static const std::vector<std::string> formats = {"jpeg", "png", "webp",      "tiff",      "heic",
                                                     "avif", "jxl", "heic exif", "avif exif", "jxl exif"};
    return formats;
}

void makeTurnedPhoto(const std::string& path, const std::string& format, Turn turn) {
    static const std::map<std::string, std::string> encoders = {
        {"jpeg", "mv photo.jpg photo"},
        {"png", "convert photo.jpg png24:photo"},
        {"webp", "convert photo.jpg -quality 99 webp:photo"},
        {"tiff", "convert photo.jpg tiff:photo"},
        {"heic", "convert photo.jpg -strip photo.png && " + kHeic},
        {"heic exif", "convert photo.jpg png24:photo.png && " + kHeic},
        {"avif", "avifenc -s 9 --min 0 --max 6 photo.jpg photo"},
        {"avif exif", "convert photo.jpg png24:photo.png && " + kHeif + "-A"},
        {"jxl", "cjxl photo.jpg photo -e 3 -j 0 -d 0.2"},
        {"jxl exif", "convert photo.jpg -strip photo.png && " + kJxl + "0 --container=1"}};
    std::vector<Values> colours;
    for (const Colour& light : knownColours()) {
        colours.push_back(valuesOf(light, "sRGB", {nullptr, cmsCloseProfile}));
    }
    writeJpeg("photo.jpg", samplesOf(colours, 8), "jpeg 1x1", turn);
    runEncoder(encoders.at(format), path);
    if (format == "heic") {
        giveProperties(path, turningBoxes(turn));
    }
    if (format == "jxl exif") { // a box of its own, behind those that tell the format
        std::string file = readFile(path);
        file.insert(32, "\0\0\0\x26"
                        "Exif\0\0\0\0"s +
                            exif(turn).substr(6));
        writeFile(path, file);
    }
}
