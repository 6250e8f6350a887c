#include "platform/fileSystem.h"
#include "platform/mediaIndex.h"
#include "tests/host/sandbox.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

TEST(FileSystem, MakesDirectoriesOfItsOwn) {
    const Sandbox sandbox;
    const std::string file = sandbox.write("folder/file", "");
    std::filesystem::create_directory_symlink(sandbox / "folder", sandbox / "link");
    // clang-format off
    const struct { std::string path; int parents; unsigned mode; int result; } cases[] = {
        {sandbox / "12/work", 1, 0755, 0}, {sandbox / "12", 1, 0755, 0}, {sandbox / "open//", 0, 0777, 0},
        {sandbox / "link", 1, 0755, -1}, {sandbox / "link/", 1, 0755, -1}, {file, 1, 0755, -1},
        {file + "/below", 1, 0755, -1}, {"", 1, 0755, -1}, {sandbox / "no/parent", 0, 0755, -1}};
    // clang-format on
    const mode_t before = umask(0077);
    for (const auto& [path, parents, mode, result] : cases) {
        EXPECT_EQ(VEXOFSMkdirP(path.c_str(), nullptr, parents, -1, -1, mode), result) << path;
        EXPECT_EQ(VEXOFSMkdirP(path.c_str(), nullptr, parents, -1, -1, 0700), result) << path << " again";
        EXPECT_TRUE(result < 0 || std::filesystem::status(path).permissions() == std::filesystem::perms(mode)) << path;
    }
    umask(before);
    EXPECT_EQ(VEXOFSMkdirP(nullptr, nullptr, 1, -1, -1, 0755), -1);
}

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
