// The four free functions on a fake platform.

#include "util/file.h"
#include "fakePlatform.h"

#include <gtest/gtest.h>

namespace {

/// Asks for the directory with a buffer of so many bytes more than its name, which is filled and not overrun.
int findDirectory(const std::string& directory, std::size_t spare, int toolAnswer) {
    fake = {directory};
    fake.results["exec"] = toolAnswer;
    const std::size_t size = directory.size() + spare;
    std::string buffer(size + 1, 'x');
    std::string expected = directory.substr(0, size - 1);
    expected.resize(size);
    const int result = GetTmpDownloadDir(buffer.data(), static_cast<int>(size));
    EXPECT_EQ(buffer, expected + 'x');
    EXPECT_EQ(fake.messages, Texts());
    return result;
}

} // namespace

TEST(FileTest, FindsTheTmpDownloadDirectory) {
    EXPECT_EQ(findDirectory("/usr", 1, 1), 0);
    EXPECT_EQ(fake.calls, Texts{"exec|/usr/vexo/bin/vexofstool|--check-volume-writable|/usr"});
    EXPECT_EQ(findDirectory("/usr", 100, 2), -1);      // an answer that is no yes
    EXPECT_EQ(findDirectory("/usr", 0, 1), -1);        // no room for the terminator
    EXPECT_EQ(findDirectory("/etc/passwd", 9, 1), -1); // a file
    EXPECT_EQ(findDirectory("", 9, 1), -1);            // no link
    char none = 0;
    EXPECT_EQ(GetTmpDownloadDir(&none, -1), -1);
    EXPECT_EQ(GetTmpDownloadDir(nullptr, 8), -1);
    EXPECT_EQ(fake.messages, (Texts{"Bad parameters", "Bad parameters"}));
}

TEST(FileTest, ChecksTheSpaceOfItsVolume) {
    fake = {"/usr"};
    const std::tuple<long, long, int> volumes[] = {
        {1048575, 1, 1}, {1048576, 1, 0}, {2000000, 4096, 0}, {10, 0x80000000L, 1}}; // the last size counts as negative
    for (const auto& [blocks, blockSize, result] : volumes) {
        fake.availableBlocks = blocks;
        fake.blockSize = blockSize;
        EXPECT_EQ(TmpVolumeSpaceCheck(), result) << blocks;
    }
    fake.results["statfs"] = -1;
    EXPECT_EQ(TmpVolumeSpaceCheck(), -1);
    fake.downloadLink = std::string(1024, 'd');
    EXPECT_EQ(TmpVolumeSpaceCheck(), -1);
    EXPECT_EQ(fake.messages, (Texts{"statfs() failed [/usr]", "Failed to get TmpDownloadDir."}));
}

TEST(FileTest, RemovesATaskPath) {
    fake = {};
    EXPECT_EQ(RemoveTaskTemp("/a b", 5), 0);
    EXPECT_EQ(RemoveTaskTemp("/b", 0), 0);
    fake.results["execl"] = 1;
    EXPECT_EQ(RemoveTaskTemp("/c", 1), -1);
    EXPECT_EQ(fake.calls, (Texts{"execl|123|/bin/rm|-rf|/a b", "execl|59|/bin/rm|-rf|/b", "execl|123|/bin/rm|-rf|/c"}));
    EXPECT_EQ(fake.messages, Texts{"Failed to remove path [/c]"});
}

TEST(FileTest, ChecksAUserQuota) {
    // What the group and the tool answer: -1 is not known, 2 is no yes.
    const std::tuple<int, int, int> cases[] = {{7, 0, 0}, {-2, 0, 0}, {-1, 1, -1}, {0, 1, 0}, {0, 2, -1}};
    for (const auto& [group, tool, result] : cases) {
        fake = {};
        fake.results = {{"group", group}, {"exec", tool}};
        EXPECT_EQ(VEXODLQuotaCheck(4294967295U, "/t", 5000000000ULL), result) << group;
    }
    EXPECT_EQ(fake.calls,
              (Texts{"group|4294967295|1", "exec|/usr/vexo/sbin/vexouser|--quota_check|4294967295|/t|5000000000"}));
}
