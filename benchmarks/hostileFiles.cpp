// Makes films and photos by which a stranger would have the programs work for long or take much memory. Most are
// sparse.
//
//   hostileFiles FILMS FOLDER
//
// FILMS is a folder of scripts/sampleVideos. The files come into FOLDER, photos into FOLDER/photos.

#include "tests/programs/programRun.h"

#include <fcntl.h>

#include <functional>
#include <iostream>

namespace {

constexpr std::uintmax_t kVast = std::uintmax_t{100} << 30U;
constexpr std::uintmax_t kPhoto = std::uintmax_t{1} << 30U; // the largest that gets a picture
constexpr std::uintmax_t kFilm = std::uintmax_t{50} << 20U; // the smallest film that gets pictures

std::string big(std::uint64_t number, unsigned bytes) {
    std::string text;
    while (bytes-- > 0) {
        text += static_cast<char>(number >> 8U * bytes);
    }
    return text;
}

std::string little(std::uint64_t number, unsigned bytes) {
    const std::string text = big(number, bytes);
    return {text.rbegin(), text.rend()};
}

std::string repeated(unsigned times, const std::string& part) {
    std::string text;
    text.reserve(times * part.size());
    for (unsigned i = 0; i < times; ++i) {
        text += part;
    }
    return text;
}

/// The bytes, and zeros to that size, which take no room.
void writeSparse(const fs::path& path, const std::string& bytes, std::uintmax_t size, const std::string& end = "") {
    writeFile(path, bytes);
    fs::resize_file(path, size - end.size());
    std::ofstream(path, std::ios::binary | std::ios::app) << end;
}

// MP4 --------------------------------------------------------------------------------------------------------------

std::string box(const std::string& type, const std::string& content) {
    return big(content.size() + 8, 4) + type + content;
}

std::string fullBox(const std::string& type, const std::string& content) {
    return box(type, big(0, 4) + content);
}

/// The samples of a track: all of one size, one behind the other from `place` on or, with many chunks, each there.
struct Samples {
    const char* codec;
    unsigned side; ///< of a picture
    unsigned count;
    unsigned size;
    unsigned step; ///< in seconds
    unsigned chunks;
    unsigned place;
};

std::string track(const Samples& samples, unsigned number) {
    const std::string zeros(80, '\0');
    const std::string side = big(samples.side, 2);
    const std::string entry =
        box(samples.codec, big(1, 8) + big(0, 16) + side + side + big(0x480000, 4) + big(0x480000, 4) + big(0, 4) +
                               big(1, 2) + big(0, 32) + big(24, 2) + big(0xffff, 2));
    const std::string table =
        fullBox("stsd", big(1, 4) + entry) + fullBox("stts", big(1, 4) + big(samples.count, 4) + big(samples.step, 4)) +
        fullBox("stss", big(0, 4)) +
        fullBox("stsc", big(1, 4) + big(1, 4) + big(samples.count / samples.chunks, 4) + big(1, 4)) +
        fullBox("stsz", big(samples.size, 4) + big(samples.count, 4)) +
        fullBox("stco", big(samples.chunks, 4) + repeated(samples.chunks, big(samples.place, 4)));
    return box("trak", fullBox("tkhd", big(0, 8) + big(number, 4) + zeros.substr(0, 60) + big(samples.side << 16U, 4) +
                                           big(samples.side << 16U, 4)) +
                           box("mdia", fullBox("mdhd", big(0, 8) + big(1, 4) + big(samples.count * samples.step, 4) +
                                                           big(0x55c40000, 4)) +
                                           fullBox("hdlr", big(0, 4) + "vide" + zeros.substr(0, 13)) +
                                           box("minf", fullBox("vmhd", big(0, 8)) + box("stbl", table))));
}

std::string mp4(const Samples& samples, unsigned tracks, unsigned seconds, const std::string& data) {
    std::string film = fullBox("mvhd", big(0, 8) + big(1, 4) + big(seconds, 4) + std::string(80, '\0'));
    for (unsigned i = 1; i <= tracks; ++i) {
        film += track(samples, i);
    }
    return box("ftyp", "isom" + big(0x200, 4) + "isommp41") + box("mdat", data) + box("moov", film);
}

void makeMp4s(const fs::path& to) {
    constexpr unsigned kLong = 936'000'000; // seconds
    constexpr unsigned kPlace = 32;         // of the data
    const auto write = [&](const char* name, const Samples& samples, unsigned tracks, unsigned seconds,
                           const std::string& data = "") {
        writeSparse(to / name, mp4(samples, tracks, seconds, data), kFilm);
    };
    write("samples.mp4", {"avc1", 320, 85'000'000, 1, 1, 1, kPlace}, 3, 85'000'000);
    write("late.mp4", {"avc1", 320, 1000, 8, kLong / 1000, 1, kPlace}, 1, kLong);
    write("moment.mp4", {"avc1", 320, 20'000'000, 1, 0, 1, kPlace}, 1, kLong);
    write("tracks.mp4", {"avc1", 320, 10'000, 1, 1, 1, kPlace}, 1000, 10'000);
    shell("convert -size 8000x8000 xc:black -depth 8 -define png:color-type=2 same.png");
    const std::string picture = readFile("same.png");
    write("pictures.mp4", {"png ", 8000, 10'000, static_cast<unsigned>(picture.size()), 0, 10'000, kPlace}, 1, 100,
          picture);
}

// Matroska ---------------------------------------------------------------------------------------------------------

std::string element(const std::string& id, const std::string& content) {
    return id + big(std::uint64_t{1} << 56U | content.size(), 8) + content;
}

void makeMatroskas(const fs::path& to) {
    constexpr unsigned kAttachments = 24;
    constexpr std::uintmax_t kAttached = 100'000'000; // bytes of each
    const std::string head = element("\x1a\x45\xdf\xa3", element("\x42\x82", "matroska"));
    const std::string info = element("\x15\x49\xa9\x66", element("\x2a\xd7\xb1", big(1'000'000, 4)));
    const std::string video = element("\xe0", element("\xb0", big(320, 2)) + element("\xba", big(180, 2)));
    const std::string tracks = element(
        "\x16\x54\xae\x6b", element("\xae", element("\xd7", "\1") + element("\x73\xc5", "\1") + element("\x83", "\1") +
                                                element("\x86", "V_MPEG4/ISO/AVC") + video));
    const std::string open = "\1\xff\xff\xff\xff\xff\xff\xff"; // a size that is not known
    const std::string blocks = "\x1f\x43\xb6\x75" + open + element("\xe7", "\1") +
                               repeated(8 << 20, "\xa3\x86\x81\0\0\0\0\0"s); // one track, the same time, no key frame
    writeFile(to / "blocks.mkv", head + "\x18\x53\x80\x67" + open + info + tracks + blocks);

    const std::string name = element("\x46\x6e", "x") + element("\x46\x60", "x/x") + element("\x46\xae", "\1");
    const std::string attached =
        name + "\x46\x5c" + big(std::uint64_t{1} << 56U | kAttached, 8); // its data is not written
    const fs::path path = to / "attachments.mkv";
    std::ofstream file(path, std::ios::binary);
    const std::uint64_t size = kAttachments * (attached.size() + kAttached + 10);
    file << head << "\x18\x53\x80\x67" << open << info << tracks << "\x19\x41\xa4\x69"
         << big(std::uint64_t{1} << 56U | size, 8);
    for (unsigned i = 0; i < kAttachments; ++i) {
        file << "\x61\xa7" << big(std::uint64_t{1} << 56U | (attached.size() + kAttached), 8) << attached;
        file.seekp(static_cast<std::streamoff>(kAttached), std::ios::cur);
    }
    file << "\xec\x80";
}

// Others -----------------------------------------------------------------------------------------------------------

/// Two thirds of films, and zeros.
void makeFilms(const fs::path& films, const fs::path& to) {
    for (const char* name : {"hevc.mkv", "vp9.webm", "mpeg2.mxf", "flv1.flv", "mjpeg.avi", "mpeg1.mpg", "raw.h264",
                             "vp8.ivf", "rv20.rm", "openGop.ts"}) {
        const std::string film = readFile(films / name);
        writeSparse(to / ("zeros."s + name), film.substr(0, film.size() * 2 / 3), kVast);
    }
}

/// Unfinished: a block of data, a hole, and so on, 100,000 times.
void makeHoles(const fs::path& films, const fs::path& to) {
    constexpr std::uintmax_t kBlock = 4 << 10;
    constexpr std::uintmax_t kStep = 64 << 10;
    constexpr unsigned kHoles = 100'000;
    for (const char* name : {"clusters.mkv", "openGop.ts"}) {
        const std::string film = readFile(films / name);
        const fs::path path = to / ("holes."s + name + ".part");
        writeSparse(path, film.substr(0, kStep), kHoles * kStep);
        std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
        for (unsigned i = 1; i < kHoles; ++i) {
            file.seekp(static_cast<std::streamoff>(i * kStep));
            file << film.substr(i * kBlock % (film.size() - kBlock), kBlock);
        }
    }
}

// Photos -----------------------------------------------------------------------------------------------------------

/// One entry each of a directory of BigTIFF whose strip is nearly all of the file.
std::string farDirectory(std::uint64_t bytes) {
    const std::vector<std::pair<unsigned, std::uint64_t>> entries = {
        {256, 300}, {257, 200}, {258, 8}, {259, 1}, {262, 1}, {273, 16}, {277, 1}, {278, 200}, {279, bytes}};
    std::string directory = little(entries.size(), 8);
    for (const auto& [tag, value] : entries) {
        directory += little(tag, 2) + little(16, 2) + little(1, 8) + little(value, 8);
    }
    return directory + little(0, 8);
}

void makePhotos(const fs::path& to) {
    fs::create_directories(to);
    shell("convert -seed 1 -size 300x200 plasma:red-blue s.png && cjxl s.png s.jxl && "
          "convert s.png -interlace JPEG progressive.jpg && "
          "for type in jpg tif bmp gif webp heic avif jp2; do convert s.png s.$type || exit; done");
    const auto write = [&](const std::string& name, const std::string& bytes, const std::string& end = "") {
        writeSparse(to / name, bytes, kPhoto, end);
    };
    for (const char* name : {"s.jpg", "progressive.jpg", "s.png", "s.tif", "s.bmp", "s.gif", "s.webp", "s.heic",
                             "s.avif", "s.jxl", "s.jp2"}) {
        const std::string photo = readFile(name);
        const std::string kind = name[0] == 's' ? std::string(name + 1) : ".progressive.jpg";
        write("whole" + kind, photo);
        write("cut" + kind, photo.substr(0, photo.size() * 2 / 3));
    }
    const std::string photo = readFile("s.jpg");
    write("zeros.jpg", "");
    write("mark.jpg", photo.substr(0, 3));
    write("head.jpg", photo.substr(0, photo.find("\xff\xda")));
    const std::string heic = readFile("s.heic");
    const std::size_t data = heic.find("mdat") - 4;
    write("data.heic", heic.substr(0, data) + big(0, 4) + heic.substr(data + 4));
    write("box.jxl", "\0\0\0\x0cJXL \r\n\x87\n\0\0\0\x14"
                     "ftypjxl \0\0\0\0jxl \0\0\0\1jxlc"s +
                         big(kPhoto - 32, 8) + readFile("s.jxl"));
    const std::string directory = farDirectory(kPhoto - 4096);
    write("far.tif", "II+\0\x08\0\0\0"s + little(kPhoto - directory.size(), 8), directory);
    writeSparse(to / "vast.jpg", photo.substr(0, 3), kVast);
}

} // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::cerr << "usage: hostileFiles FILMS FOLDER\n";
        return 2;
    }
    try {
        const fs::path films = fs::absolute(arguments[1]);
        const fs::path folder = fs::absolute(arguments[2]);
        fs::create_directories(folder / "seeds");
        fs::current_path(folder / "seeds");
        makeMp4s(folder);
        makeMatroskas(folder);
        makeFilms(films, folder);
        makeHoles(films, folder);
        makePhotos(folder / "photos");
    } catch (const std::exception& error) {
        std::cerr << "hostileFiles: " << error.what() << '\n';
        return 1;
    }
    return testing::Test::HasFailure() ? 1 : 0;
}
