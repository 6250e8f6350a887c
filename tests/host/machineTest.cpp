#include "platform/mediaIndex.h"

#include <gtest/gtest.h>

namespace {

TEST(MediaIndex, KnowsFilesByTheirExtension) {
    // An extension or a name; video, photo, subtitle or none of them.
    // clang-format off
    const std::pair<const char*, char> cases[] = {
        {"mkv", 'v'}, {"MP4", 'v'}, {"wtv", 'v'}, {"JPEG", 'p'}, {"avif", 'p'}, {"", ' '}, {"1/mkv", ' '},
        {"iso", ' '}, {"mkvx", ' '}, {"extraordinary", ' '}, {"srt", ' '}, {"a.en.SSA", 's'}, {"a.sub/b", ' '},
        {nullptr, ' '}};
    // clang-format on
    for (const auto& [text, kind] : cases) {
        EXPECT_EQ(BlVEXOIndexIsVideo(text) != 0, kind == 'v') << text;
        EXPECT_EQ(BlVEXOIndexIsPhoto(text) != 0, kind == 'p') << text;
        EXPECT_EQ(BlVEXOIndexIsSubtitleFile(text) != 0, kind == 's') << text;
    }
}

} // namespace
