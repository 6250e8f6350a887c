// The four free functions on a fake platform.

#include "util/file.h"
#include "fakePlatform.h"

#include <gtest/gtest.h>

// One row a case.
// clang-format off

namespace {

struct FileTest : testing::Test {
    FileTest() { fake = {"/usr"}; }
};

} // namespace

TEST_F(FileTest, FindsTheTmpDownloadDirectory) {
    const std::string question = "exec|/usr/vexo/bin/vexofstool|--check-volume-writable|/usr|(null)|(null)";
    const struct { const char* name; std::string target; int spare; int answer; int result; std::string calls; } cases[] = {
                 {"writable", "/usr", 1, 1, 0, question},
                 {"an answer that is no yes", "/usr", 100, 2, -1, question},
                 {"no room for the terminator", "/usr", 0, 1, -1, ""},
                 {"cut", "/usr", -1, 1, -1, ""},
                 {"a file", "/etc/passwd", 100, 1, -1, ""},
                 {"nothing there", "/usr/none", 100, 1, -1, ""},
                 {"no link", "", 100, 1, -1, ""}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        fake = {each.target};
        fake.results["exec"] = each.answer;
        const std::size_t size = each.target.size() + static_cast<std::size_t>(each.spare);
        std::string buffer(size + 1, 'x');
        std::string expected = each.target.substr(0, size - 1);
        expected.resize(size);
        EXPECT_EQ(GetTmpDownloadDir(buffer.data(), static_cast<int>(size)), each.result);
        EXPECT_EQ(buffer, expected + 'x');
        EXPECT_EQ(fake.calls, each.calls);
        EXPECT_EQ(fake.messages, "");
    }
    char none = 0;
    EXPECT_EQ(GetTmpDownloadDir(&none, 0), -1);
    EXPECT_EQ(GetTmpDownloadDir(&none, -1), -1);
    EXPECT_EQ(GetTmpDownloadDir(nullptr, 8), -1);
    EXPECT_EQ(fake.messages, "file:N Bad parameters;file:N Bad parameters");
}

TEST_F(FileTest, ChecksTheSpaceOfItsVolume) {
    const struct { const char* name; long blocks; long blockSize; int result; } cases[] = {
                 {"one byte short", 1048575, 1, 1},
                 {"exactly enough", 1048576, 1, 0},
                 {"more than 4 GiB", 2000000, 4096, 0},
                 {"a block size beyond 31 bits is negative", 10, 0x80000000L, 1}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        fake.availableBlocks = each.blocks;
        fake.blockSize = each.blockSize;
        EXPECT_EQ(TmpVolumeSpaceCheck(), each.result);
    }
    EXPECT_EQ(fake.messages, "");
    fake.failingCall = 1;
    EXPECT_EQ(TmpVolumeSpaceCheck(), -1);
    fake.downloadLink = std::string(1024, 'd');
    EXPECT_EQ(TmpVolumeSpaceCheck(), -1);
    EXPECT_EQ(fake.messages, "file:N statfs() failed [/usr];file:N Failed to get TmpDownloadDir.");
}

TEST_F(FileTest, RemovesATaskPath) {
    EXPECT_EQ(RemoveTaskTemp("/a b", 5), 0);
    EXPECT_EQ(RemoveTaskTemp("-x", 0), 0);
    fake.results["execl"] = 1;
    EXPECT_EQ(RemoveTaskTemp("/c", 1), -1);
    EXPECT_EQ(fake.calls, "execl|/bin/rm|123|-rf|/a b;execl|/bin/rm|59|-rf|-x;execl|/bin/rm|123|-rf|/c");
    EXPECT_EQ(fake.messages, "file:N Failed to remove path [/c]");
}

TEST_F(FileTest, ChecksAUserQuota) {
    const std::string member = "group|4294967295|1";
    const std::string both = member + ";exec|/usr/vexo/sbin/vexouser|--quota_check|4294967295|/t|5000000000";
    const struct { const char* name; int group; int answer; int result; std::string calls; } cases[] = {
                 {"administrator", 7, 0, 0, member},
                 {"the group is not known", -1, 1, -1, member},
                 {"another negative result is a yes", -2, 0, 0, member},
                 {"admitted", 0, 1, 0, both},
                 {"an answer that is no yes", 0, 2, -1, both},
                 {"the tool failed", 0, -1, -1, both}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        fake = {};
        fake.results["group"] = each.group;
        fake.results["exec"] = each.answer;
        EXPECT_EQ(VEXODLQuotaCheck(4294967295U, "/t", 5000000000ULL), each.result);
        EXPECT_EQ(fake.calls, each.calls);
        EXPECT_EQ(fake.messages, "");
    }
}
