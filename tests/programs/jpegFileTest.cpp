#include "programs/picture/jpegFile.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::string_literals;

TEST(JpegFile, IsWholeWhenEachPartIs) {
    const std::string start = "\xff\xd8", tables = "\xff\xdb\0\3q"s, codes = "\xff\xc4\0\3c"s, end = "\xff\xd9",
                      frame = "\xff\xc0\0\x0b\x08\0\1\0\1\1\1\x11\0"s, scan = "\xff\xda\0\x08\1\1\0\0\x3f\0"s,
                      data = "d\xff\0d\xff\0"s, head = start + tables + codes, tail = scan + data + end;
    const std::string three = "\3\1\x11\0\2\x11\1\3\x11\1"s,
                      threeScan = "\xff\xda\0\x0c\3\1\0\2\x11\3\x11\0\x3f\0d"s + end;
    const std::string whole = head + frame + tail;
    EXPECT_TRUE(isWholeJpeg(whole));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(isWholeJpeg(std::string_view(whole).substr(0, length))) << length;
    }
    const auto sized = [](const char* size) { return "\xff\xc0\0\x0b\x08"s + std::string(size, 4) + "\1\1\x11\0"s; };
    const std::tuple<const char*, std::string, bool> files[] = {
        {"other segments", start + "\xff\xe0\0\2\xff\xfe\0\4ab\xff\xe2\0\2"s + codes + frame + tables + tail, true},
        {"colours", head + "\xff\xc0\0\x11\x08\1\0\1\0"s + three + threeScan, true},
        {"higher than 255", head + sized("\1\0\0\1") + tail, true},
        {"a tail", whole + "x", false},
        {"a second end", whole + end, false},
        {"two pictures", whole + whole, false},
        {"another start", "x" + whole.substr(1), false},
        {"no start", whole.substr(2), false},
        {"no quantization", start + codes + frame + tail, false},
        {"no codes' table", start + tables + frame + tail, false},
        {"no frame", head + "\xff\xda\0\6\0\0\x3f\0"s + data + end, false},
        {"no scan", head + frame + end, false},
        {"no data", head + frame + scan + end, false},
        {"two frames", head + frame + frame + tail, false},
        {"two scans", head + frame + scan + data + tail, false},
        {"no height", head + sized("\0\0\0\1") + tail, false},
        {"no width", head + sized("\0\1\0\0") + tail, false},
        {"progressive", head + "\xff\xc2"s + frame.substr(2) + tail, false},
        {"12 bits", head + "\xff\xc0\0\x0b\x0c"s + frame.substr(5) + tail, false},
        {"a frame too short", head + "\xff\xc0\0\7\x08\0\1\0\1"s + tail, false},
        {"components that are not there", head + "\xff\xc0\0\x0b\x08\0\1\0\1\3\1\x11\0"s + threeScan, false},
        {"two components",
         head + "\xff\xc0\0\x0e\x08\0\1\0\1\2\1\x11\0\2\x11\0\xff\xda\0\x0a\2\1\0\2\0\0\x3f\0d"s + end, false},
        {"a scan of fewer components", head + "\xff\xc0\0\x11\x08\0\1\0\1"s + three + tail, false},
        {"Exif", head + "\xff\xe1\0\2"s + frame + tail, false},
        {"no marker", head + "\0\xe0\0\2"s + frame + tail, false},
        {"length 1", head + "\xff\xe0\0\1"s + frame + tail, false},
        {"a length beyond the end", head + "\xff\xe0\xff\xff"s + frame + tail, false},
        {"a restart", head + frame + scan + data + "\xff\xd0"s + data + end, false},
        {"an end in the data", head + frame + scan + data + end + data + end, false},
    };
    for (const auto& [name, file, isWhole] : files) {
        EXPECT_EQ(isWholeJpeg(file), isWhole) << name;
    }
}

} // namespace
