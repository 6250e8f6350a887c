#include "programs/media/syncPoints.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <string>

using namespace std::string_literals;

namespace {

constexpr std::int64_t kKiB = 1024;

/// A file in memory of which some bytes are there.
class PartFile {
public:
    explicit PartFile(std::int64_t size) { EXPECT_EQ(ftruncate(descriptor, size), 0); }
    ~PartFile() { close(descriptor); }
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    PartFile& put(std::int64_t place, const std::string& bytes) {
        EXPECT_EQ(pwrite(descriptor, bytes.data(), bytes.size(), place), static_cast<ssize_t>(bytes.size()));
        return *this;
    }

    const int descriptor = memfd_create("part", 0);
};

std::string data(std::int64_t size) {
    return std::string(static_cast<std::size_t>(size), 'd');
}

/// A hole in the middle that begins and ends within pages, in a sparse file and in one that was filled.
TEST(PresentBytes, AreTheBytesAroundAHole) {
    constexpr std::int64_t kBegin = 40 * kKiB + 5, kEnd = 100 * kKiB + 7, kSize = 200 * kKiB;
    for (const bool filled : {false, true}) {
        PartFile file(kSize);
        file.put(0, filled ? std::string(kSize, '\0') : "");
        file.put(0, data(kBegin))
            .put(kEnd, "\0\0"s + data(kSize - kEnd - 2))
            .put(20 * kKiB, std::string(9 * kKiB, '\0'));
        const auto fresh = [&] { return PresentBytes(file.descriptor, Download::unfinished); };
        std::string buffer(kSize, '\0');
        const auto read = [&](std::int64_t place, std::int64_t size) {
            return fresh().read(reinterpret_cast<std::uint8_t*>(buffer.data()), size, place);
        };
        EXPECT_EQ(read(0, kSize), kBegin) << filled; // 9 KiB of zeros are no hole
        EXPECT_EQ(read(22 * kKiB, kKiB), kKiB) << filled;
        for (const std::int64_t place : {kBegin, kBegin + 1, kEnd - 9 * kKiB, kEnd - 100}) {
            EXPECT_EQ(read(place, 50), 0) << place;
            EXPECT_GE(fresh().next(place), kEnd - 3) << place; // what follows may begin with a few zeros
            EXPECT_LE(fresh().next(place), kEnd) << place;
        }
        EXPECT_EQ(read(kEnd, kSize), kSize - kEnd) << filled;
        EXPECT_EQ(fresh().next(kEnd + 9), kEnd + 9) << filled;
    }
}

/// The last block of a torrent is shorter than others. Of a finished file all zeros are its own.
TEST(PresentBytes, LackZerosAtTheEndOfAnUnfinishedFileOnly) {
    PartFile file(9 * kKiB);
    file.put(0, data(8 * kKiB)).put(8 * kKiB, std::string(kKiB, '\0'));
    for (const auto& [download, there] : {std::pair(Download::unfinished, 8 * kKiB), {Download::finished, 9 * kKiB}}) {
        PresentBytes bytes(file.descriptor, download);
        std::string buffer(9 * kKiB, '\0');
        EXPECT_EQ(bytes.read(reinterpret_cast<std::uint8_t*>(buffer.data()), 9 * kKiB, 0), there);
    }
}

/// Behind a head and what only looks like a place where reading can begin.
TEST(SyncPoints, AreNotWhereAMarkStandsByChance) {
    const std::string mkv = "\x1a\x45\xdf\xa3\x80\x18\x53\x80\x67\x01\xff\xff\xff\xff\xff\xff\xff\xec\x9e" + data(30);
    const std::string mp4 = "\0\0\0\x10"
                            "ftypisom\0\0\0\0\0\0\0\x10moov\0\0\0\x08mvex\0\0\0\1"
                            "free\0\0\0\0\0\0\0\x20"s +
                            data(16);
    const std::string avi = "RIFF\xff\xff\xff\x0f"
                            "AVI LIST\xff\xff\xff\x0fmovi"s;
    const std::string moof = "moof\0\0\0\x10mfhd\0\0\0\0\0\0\0\1"s;
    const std::tuple<std::string, std::string, std::string> films[] = {
        {mkv, "\x1f\x43\xb6\x75\x88 noTime" + data(40), "\x1f\x43\xb6\x75\x9f\xe7\x81\x05" + data(90)},
        {mp4, "\0\0\0\x18moof\0\0\0\x10notA"s + data(40), "\0\0\0\x18"s + moof + data(90)},
        {mp4, "\0\x02\0\0"s + moof + data(40), "\0\0\0\x18"s + moof + data(90)}, // the first is not all there
        {avi, "00dc\x10\0\0\0"s + data(60), "00dc\x1f\0\0\0"s + data(32) + "01wb\x04\0\0\0"s + data(90)}};
    for (const auto& [head, chance, point] : films) {
        PartFile file(400 * kKiB);
        file.put(0, head + (head == avi ? "JUNK" + data(16) : ""))
            .put(100 * kKiB + 1, chance)
            .put(200 * kKiB + 2, point);
        PresentBytes bytes(file.descriptor, Download::unfinished);
        SyncPoints points(bytes);
        EXPECT_EQ(points.headEnd(), head.size()) << head;
        EXPECT_EQ(points.find(points.headEnd()).value_or(-1), 200 * kKiB + 2) << head;
        EXPECT_FALSE(points.find(200 * kKiB + 3)) << head;
    }
}

} // namespace
