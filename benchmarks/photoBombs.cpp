// Makes small files that ask a reader of photos for much time or memory, and a HEIC photo of many tiles.
//
//   photoBombs FOLDER
//
// FOLDER holds photos that are changed: flat.jpg (grey, 10000 x 10000, progressive), small.jpg and
// small.progressive.jpg, square.jxl (9000 x 9000), small.jp2, small.heic, small.avif, clear.webp (one transparent
// pixel) and tile.heic (512 x 512). The bombs come into FOLDER/bombs, the photo is FOLDER/tiles48.heic.

#include "tests/programs/programRun.h"

#include <zlib.h>

#include <functional>
#include <iostream>

namespace {

constexpr unsigned kAllowedSide = 20000; // larger photos may be refused by their size alone

std::string big(std::uint64_t number, int bytes) {
    std::string text;
    while (bytes-- > 0) {
        text += static_cast<char>(number >> 8U * static_cast<unsigned>(bytes));
    }
    return text;
}

std::string little(std::uint64_t number, int bytes) {
    const std::string text = big(number, bytes);
    return {text.rbegin(), text.rend()};
}

std::string repeated(int times, const std::function<std::string(int)>& part) {
    std::string text;
    for (int i = 0; i < times; ++i) {
        text += part(i);
    }
    return text;
}

/// The bytes with those that stand so many behind a mark replaced.
std::string patched(std::string bytes, const std::string& mark, std::size_t distance, const std::string& by) {
    const std::size_t found = bytes.find(mark);
    if (found == std::string::npos) {
        throw std::runtime_error("no mark to change the file at");
    }
    return bytes.replace(found + distance, by.size(), by);
}

/// `begin` and so many zeros as zlib packs them.
std::string packedZeros(std::uint64_t count, std::string begin = "") {
    std::string packed(count / 500 + 1000, '\0');
    z_stream stream = {};
    deflateInit(&stream, Z_BEST_COMPRESSION);
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    for (bool more = true; more; begin.assign(std::min<std::uint64_t>(count, 1 << 20), '\0'), count -= begin.size()) {
        stream.next_in = reinterpret_cast<Bytef*>(begin.data());
        stream.avail_in = static_cast<uInt>(begin.size());
        more = count > 0;
        deflate(&stream, more ? Z_NO_FLUSH : Z_FINISH);
    }
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

// PNG --------------------------------------------------------------------------------------------------------------

std::string chunk(const std::string& type, const std::string& content) {
    const std::string checked = type + content;
    const auto sum = crc32(0, reinterpret_cast<const Bytef*>(checked.data()), static_cast<uInt>(checked.size()));
    return big(content.size(), 4) + checked + big(sum, 4);
}

std::string png(unsigned side, int depth, int colour, int interlace, const std::string& extra,
                const std::string& data) {
    return "\x89PNG\r\n\x1a\n" +
           chunk("IHDR", big(side, 4) + big(side, 4) + big(depth, 1) + big(colour, 1) + big(interlace, 3)) + extra +
           chunk("IDAT", data) + chunk("IEND", "");
}

void makePngs(const fs::path& to) {
    constexpr std::uint64_t kText = 1 << 30;
    const std::string text = packedZeros(kText);
    const std::string pixel = packedZeros(2);
    const std::string profile = big(kText, 4) + big(0, 4) + "\4\0\0\0mntrRGB XYZ "s + std::string(12, '\0') + "acsp";
    writeFile(to / "declared.png", png(50000, 8, 2, 0, "", packedZeros(100000)));
    writeFile(to / "whole.png", png(kAllowedSide, 16, 6, 1, "", packedZeros(8ULL * kAllowedSide * (kAllowedSide + 1))));
    writeFile(to / "zTXt.png", png(1, 8, 0, 0, chunk("zTXt", "Comment\0\0"s + text), pixel));
    writeFile(to / "iTXt.png", png(1, 8, 0, 0, chunk("iTXt", "Comment\0\1\0\0\0"s + text), pixel));
    writeFile(to / "iCCP.png",
              png(1, 8, 0, 0, chunk("iCCP", "profile\0\0"s + packedZeros(kText - profile.size(), profile)), pixel));
}

// JPEG -------------------------------------------------------------------------------------------------------------

void makeJpegs(const fs::path& from, const fs::path& to) {
    const std::string small = readFile(from / "small.jpg");
    const auto size = [](unsigned side) { return big(side, 2) + big(side, 2); };
    writeFile(to / "declared.jpg", patched(small, "\xff\xc0", 5, size(65500)));
    writeFile(to / "declaredProgressive.jpg",
              patched(readFile(from / "small.progressive.jpg"), "\xff\xc2", 5, size(kAllowedSide)));

    const std::string flat = readFile(from / "flat.jpg");
    const std::size_t scan = flat.rfind("\xff\xda");
    const std::string last = flat.substr(scan, flat.size() - 2 - scan);
    writeFile(to / "scans.jpg",
              flat.substr(0, flat.size() - 2) + repeated(5000, [&](int) { return last; }) + "\xff\xd9");

    const auto part = [](int i) {
        return "\xff\xe2\xff\xffICC_PROFILE\0"s + big(i + 1, 1) + big(255, 1) + std::string(65519, '\0');
    };
    writeFile(to / "profile.jpg", small.substr(0, 2) + repeated(255, part) + small.substr(2));
}

// TIFF -------------------------------------------------------------------------------------------------------------

/// A directory of a grey picture in one deflated strip of the bytes 8 to 16, and where the next directory is.
std::string directory(unsigned side, std::uint64_t next) {
    const auto entry = [](unsigned tag, unsigned value) {
        return little(tag, 2) + little(4, 2) + little(1, 4) + little(value, 4);
    };
    return little(8, 2) + entry(256, side) + entry(257, side) + entry(258, 8) + entry(259, 8) + entry(262, 1) +
           entry(273, 8) + entry(278, side) + entry(279, 16) + little(next, 4);
}

void makeTiffs(const fs::path& to) {
    constexpr std::uint64_t kFirst = 24;
    const std::string head = "II*\0"s + little(kFirst, 4) + (packedZeros(64) + std::string(16, '\0')).substr(0, 16);
    const int count = 100000;
    const std::uint64_t length = directory(8, 0).size();
    const auto next = [&](int i) { return i + 1 < count ? kFirst + length * (i + 1ULL) : 0; };
    writeFile(to / "directories.tif", head + repeated(count, [&](int i) { return directory(8, next(i)); }));
    writeFile(to / "cycle.tif", head + directory(8, kFirst + length) + directory(8, kFirst));
    writeFile(to / "strip.tif", head + directory(kAllowedSide, 0));
}

// Animations -------------------------------------------------------------------------------------------------------

void makeAnimations(const fs::path& from, const fs::path& to) {
    constexpr unsigned kSide = 2000;
    const std::string frame = "\x21\xf9\x04\x01\0\0\0\0,\0\0\0\0\1\0\1\0\0\2\2D\1\0"s;
    writeFile(to / "frames.gif", "GIF89a" + little(kSide, 2) + little(kSide, 2) + "\x80\0\0\0\0\0\xff\xff\xff"s +
                                     repeated(10000, [&](int) { return frame; }) + ";");
    const auto riff = [](const std::string& type, const std::string& content) {
        return type + little(content.size(), 4) + content;
    };
    const std::string webp = readFile(from / "clear.webp");
    const std::string pixel = webp.substr(webp.find("VP8L"));
    const std::string part = riff("ANMF", std::string(6, '\0') + std::string(6, '\0') + little(100, 3) + "\0"s + pixel);
    writeFile(to / "frames.webp",
              riff("RIFF", "WEBP" + riff("VP8X", "\x12\0\0\0"s + little(kSide - 1, 3) + little(kSide - 1, 3)) +
                               riff("ANIM", std::string(6, '\0')) + repeated(10000, [&](int) { return part; })));
}

// HEIC, AVIF -------------------------------------------------------------------------------------------------------

constexpr unsigned kTile = 512; // both sides

std::string box(const std::string& type, const std::string& content) {
    return big(content.size() + 8, 4) + type + content;
}

/// A box of the file, its head included.
std::string boxOf(const std::string& bytes, const std::string& type) {
    const std::size_t found = bytes.find(type) - 4;
    std::uint64_t size = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        size = size << 8U | static_cast<unsigned char>(bytes.at(found + i));
    }
    return bytes.substr(found, size);
}

std::string fullBox(const std::string& type, const std::string& content, int version = 0) {
    return box(type, big(version, 1) + big(0, 3) + content);
}

/// A photo of columns * rows tiles. Item 1 is the grid; all others are tiles, which have the bytes of the one in
/// `tile`.
std::string grid(const std::string& tile, unsigned columns, unsigned rows, unsigned width, unsigned height, int tiles) {
    const std::string data = boxOf(tile, "mdat").substr(8);
    const std::string layout = big(1, 2) + big(rows - 1, 1) + big(columns - 1, 1) + big(width, 4) + big(height, 4);
    const std::string head = boxOf(tile, "ftyp");
    const auto number = [](int item) { return big(item + 2, 2); };
    const auto entry = [](const std::string& item, const std::string& type) {
        return fullBox("infe", item + big(0, 2) + type + "\0"s, 2);
    };
    const auto extent = [](const std::string& item, std::uint64_t at, std::uint64_t length) {
        return item + big(0, 2) + big(1, 2) + big(at, 4) + big(length, 4);
    };
    const auto ofEach = [&](const std::function<std::string(int)>& part) {
        return big(tiles + 1, 2) + part(-1) + repeated(tiles, part);
    };
    const std::string used = repeated(static_cast<int>(columns * rows), [&](int i) { return number(i % tiles); });
    const std::string properties = boxOf(tile, "hvcC") + fullBox("ispe", big(kTile, 4) + big(kTile, 4)) +
                                   fullBox("ispe", big(width, 4) + big(height, 4));
    const auto meta = [&](std::uint64_t place) {
        return fullBox(
            "meta", fullBox("hdlr", big(0, 4) + "pict" + std::string(13, '\0')) + fullBox("pitm", number(-1)) +
                        fullBox("iinf", ofEach([&](int i) { return entry(number(i), i < 0 ? "grid" : "hvc1"); })) +
                        fullBox("iref", box("dimg", number(-1) + big(columns * rows, 2) + used)) +
                        box("iprp", box("ipco", properties) + fullBox("ipma", big(0, 2) + ofEach([&](int i) {
                                                                                  return number(i) +
                                                                                         (i < 0 ? "\1\3" : "\2\x81\2");
                                                                              }))) +
                        fullBox("iloc", big(0x4400, 2) + ofEach([&](int i) {
                                            return i < 0 ? extent(number(i), place, layout.size())
                                                         : extent(number(i), place + layout.size(), data.size());
                                        })));
    };
    const std::uint64_t place = head.size() + meta(0).size() + 8;
    return head + meta(place) + box("mdat", layout + data);
}

void makeTiles(const fs::path& from, const fs::path& to) {
    const std::string tile = readFile(from / "tile.heic");
    writeFile(from / "tiles48.heic", grid(tile, 16, 12, 8064, 6048, 192));
    writeFile(to / "grid.heic", grid(tile, 255, 255, 255 * kTile, 255 * kTile, 1));
    writeFile(to / "gridWithin.heic", grid(tile, 39, 39, 39 * kTile, 39 * kTile, 1));
    const std::string side = big(65535, 4) + big(65535, 4);
    writeFile(to / "declared.heic", patched(readFile(from / "small.heic"), "ispe", 8, side));
    writeFile(to / "declared.avif", patched(readFile(from / "small.avif"), "ispe", 8, side));
}

// JPEG 2000, JPEG XL -----------------------------------------------------------------------------------------------

void makeOthers(const fs::path& from, const fs::path& to) {
    const std::string side = big(kAllowedSide, 4) + big(kAllowedSide, 4);
    writeFile(to / "declared.jp2",
              patched(patched(readFile(from / "small.jp2"), "ihdr", 4, side), "\xff\x51", 6, side + big(0, 8) + side));

    // The side of a square, less one, has 18 bits, the lowest first, behind 3 bits after the signature.
    std::string square = readFile(from / "square.jxl");
    for (unsigned bit = 0; bit < 18; ++bit) {
        const unsigned place = 2 * 8 + 3 + bit;
        const unsigned cleared = static_cast<unsigned char>(square.at(place / 8)) & ~(1U << place % 8);
        square.at(place / 8) = static_cast<char>(cleared | ((kAllowedSide - 1) >> bit & 1U) << place % 8);
    }
    writeFile(to / "declared.jxl", square);
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "usage: photoBombs FOLDER\n";
        return 2;
    }
    try {
        const fs::path folder = arguments[1];
        const fs::path bombs = folder / "bombs";
        fs::create_directories(bombs);
        makePngs(bombs);
        makeJpegs(folder, bombs);
        makeTiffs(bombs);
        makeAnimations(folder, bombs);
        makeTiles(folder, bombs);
        makeOthers(folder, bombs);
    } catch (const std::exception& error) {
        std::cerr << "photoBombs: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
