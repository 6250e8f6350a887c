#include "platform/fileSystem.h"
#include "platform/group.h"
#include "platform/mediaIndex.h"
#include "tests/host/sandbox.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

TEST(FileSystem, MakesDirectoriesOfItsOwn) {
    const Sandbox sandbox;
    sandbox.write("folder/file", "");
    std::filesystem::create_directory_symlink(sandbox / "folder", sandbox / "link");
    const std::tuple<const char*, int, unsigned, int> cases[] = {
        {"12/work", 1, 0755, 0},        {"12", 1, 0755, 0},         {"open//", 0, 0777, 0},
        {"link", 1, 0755, -1},          {"link/", 1, 0755, -1},     {"folder/file", 1, 0755, -1},
        {"folder/file/a", 1, 0755, -1}, {"no/parent", 0, 0755, -1},
    };
    const mode_t before = umask(0077);
    for (const auto& [name, parents, mode, result] : cases) {
        const std::string path = sandbox / name;
        EXPECT_EQ(VEXOFSMkdirP(path.c_str(), nullptr, parents, -1, -1, mode), result) << path;
        EXPECT_EQ(VEXOFSMkdirP(path.c_str(), nullptr, parents, -1, -1, 0700), result) << path << " again";
        EXPECT_TRUE(result < 0 || std::filesystem::status(path).permissions() == std::filesystem::perms(mode)) << path;
    }
    umask(before);
    EXPECT_EQ(VEXOFSMkdirP("", nullptr, 1, -1, -1, 0755), -1);
}

TEST(MediaIndex, KnowsFilesByTheirExtension) {
    enum Kind { none, video, photo, subtitle };
    const std::pair<const char*, Kind> cases[] = {
        {"mkv", video}, {"MP4", video},         {"wtv", video},    {"JPEG", photo}, {"avif", photo},
        {"", none},     {"1/mkv", none},        {"iso", none},     {"mkvx", none},  {"extraordinary", none},
        {"srt", none},  {"a.en.SSA", subtitle}, {"a.sub/b", none}, {nullptr, none}};
    for (const auto& [text, kind] : cases) {
        EXPECT_EQ(BlVEXOIndexIsVideo(text) != 0, kind == video) << text;
        EXPECT_EQ(BlVEXOIndexIsPhoto(text) != 0, kind == photo) << text;
        EXPECT_EQ(BlVEXOIndexIsSubtitleFile(text) != 0, kind == subtitle) << text;
    }
}

/// Asks in a process that sees another user database; skips where the machine admits no such view.
TEST(Group, KnowsAdministratorsByPrimaryGroupAndByMembership) {
    if (std::getenv("SEES_OTHER_USERS") != nullptr) {
        for (const auto& [uid, expected] : {std::pair(1001U, 1), {1002U, 1}, {1003U, 0}, {1004U, -1}}) {
            EXPECT_EQ(VLIBGroupIsAdminGroupMemByUid(uid, 1), expected) << uid;
        }
        return;
    }
    const Sandbox sandbox;
    const std::string users = sandbox.write("passwd", "ann:x:1001:101::/:\nbob:x:1002:102::/:\ncy:x:1003:102::/:\n");
    const std::string many(5000, 'm'); // an entry that outgrows the first buffer
    const std::string groups = sandbox.write("group", "administrators:x:101:root," + many + ",bob\n");
    const std::string view = "bwrap --dev-bind / / --ro-bind " + users + " /etc/passwd --ro-bind " + groups +
                             " /etc/group --setenv SEES_OTHER_USERS 1 ";
    if (std::system((view + "true 2>/dev/null").c_str()) != 0) {
        GTEST_SKIP() << "no namespaces on this machine";
    }
    const std::string self = std::filesystem::canonical("/proc/self/exe");
    EXPECT_EQ(std::system((view + "'" + self + "' --gtest_filter='Group.*'").c_str()), 0);
}

} // namespace
