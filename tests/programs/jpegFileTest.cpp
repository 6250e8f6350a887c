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
    for (const std::string& file :
         {start + "\xff\xe0\0\2\xff\xfe\0\4ab\xff\xe2\0\2"s + codes + frame + tables + tail,
          head + "\xff\xc0\0\x11\x08\1\0\1\0"s + three + threeScan, head + sized("\1\0\0\1") + tail}) {
        EXPECT_TRUE(isWholeJpeg(file)) << testing::PrintToString(file);
    }
    for (const std::string& file :
         {whole + "x", whole.substr(2), start + codes + frame + tail, start + tables + frame + tail,
          head + "\xff\xda\0\6\0\0\x3f\0"s + data + end, head + frame + scan + end, head + frame + scan + data + tail,
          head + sized("\0\0\0\1") + tail, head + "\xff\xc2"s + frame.substr(2) + tail,
          head + "\xff\xc0\0\x0b\x08\0\1\0\1\3\1\x11\0"s + threeScan,
          head + "\xff\xc0\0\x11\x08\0\1\0\1"s + three + tail, head + "\xff\xe1\0\2"s + frame + tail,
          head + "\xff\xe0\xff\xff"s + frame + tail, head + frame + scan + data + "\xff\xd0"s + data + end,
          head + frame + scan + data + end + data + end}) {
        EXPECT_FALSE(isWholeJpeg(file)) << testing::PrintToString(file);
    }
}

} // namespace
