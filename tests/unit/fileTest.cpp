// The four free functions on a fake platform.

#include "util/file.h"
#include "fakePlatform.h"
#include "tests/host/sandbox.h"

#include <gtest/gtest.h>

// One row a case.
// clang-format off

namespace {

using Texts = std::vector<std::string>;

class FileTest : public testing::Test {
protected:
    Sandbox sandbox_;
    const std::string& directory_ = sandbox_.root;
    const std::string volumeQuestion_ =
        "exec|/usr/vexo/bin/vexofstool|--check-volume-writable|" + directory_ + "|(null)|(null)";

    void SetUp() override {
        fake = FakePlatform();
        fake.downloadLink = directory_;
    }
};

} // namespace

TEST_F(FileTest, FindsTheTmpDownloadDirectory) {
    const std::string file = sandbox_.write("file", "");
    const struct { const char* name; std::string target; int spare; int answer; int result; Texts calls; } cases[] = {
                 {"writable", directory_, 1, 1, 0, {volumeQuestion_}},
                 {"not writable", directory_, 100, 0, -1, {volumeQuestion_}},
                 {"answer that is no yes", directory_, 100, 2, -1, {volumeQuestion_}},
                 {"no room for the terminator", directory_, 0, 1, -1, {}},
                 {"cut", directory_, -1, 1, -1, {}},
                 {"a file", file, 100, 1, -1, {}},
                 {"nothing there", directory_ + "/none", 100, 1, -1, {}},
                 {"no link", "", 100, 1, -1, {}}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        fake = FakePlatform();
        fake.downloadLink = each.target;
        fake.results["exec"] = each.answer;
        std::vector<char> buffer(each.target.size() + 101, 'x');
        const std::size_t size = each.target.size() + static_cast<std::size_t>(each.spare);
        EXPECT_EQ(GetTmpDownloadDir(buffer.data(), static_cast<int>(size)), each.result);
        EXPECT_EQ(fake.calls, each.calls);
        EXPECT_EQ(fake.messages, Texts());
        EXPECT_EQ(buffer.at(size), 'x');
        EXPECT_EQ(buffer.at(size - 1), '\0');
        EXPECT_EQ(std::string(buffer.data()), each.target.substr(0, each.spare > 0 ? std::string::npos : size - 1));
    }
    char buffer[8] = {};
    EXPECT_EQ(GetTmpDownloadDir(buffer, 0), -1);
    EXPECT_EQ(fake.messages, Texts());
    EXPECT_EQ(GetTmpDownloadDir(buffer, -1), -1);
    EXPECT_EQ(GetTmpDownloadDir(nullptr, 8), -1);
    EXPECT_EQ(fake.messages, (Texts{"file: Bad parameters", "file: Bad parameters"}));
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
    EXPECT_EQ(fake.messages, Texts());
    fake.failingCall = 1;
    EXPECT_EQ(TmpVolumeSpaceCheck(), -1);
    fake.downloadLink = std::string(1024, 'd');
    EXPECT_EQ(TmpVolumeSpaceCheck(), -1);
    EXPECT_EQ(fake.messages,
              (Texts{"file: statfs() failed [" + directory_ + "]", "file: Failed to get TmpDownloadDir."}));
}

TEST_F(FileTest, RemovesATaskPath) {
    EXPECT_EQ(RemoveTaskTemp("/a b", 5), 0);
    EXPECT_EQ(RemoveTaskTemp("-x", 0), 0);
    fake.results["execl"] = 1;
    EXPECT_EQ(RemoveTaskTemp("/c", 1), -1);
    EXPECT_EQ(fake.calls, (Texts{"execl|/bin/rm|123|-rf|/a b", "execl|/bin/rm|59|-rf|-x", "execl|/bin/rm|123|-rf|/c"}));
    EXPECT_EQ(fake.messages, Texts{"file: Failed to remove path [/c]"});
}

TEST_F(FileTest, ChecksAUserQuota) {
    const std::string question = "exec|/usr/vexo/sbin/vexouser|--quota_check|4294967295|/t|5000000000";
    const struct { const char* name; int group; int answer; int result; Texts calls; } cases[] = {
                 {"administrator", 7, 0, 0, {"group|4294967295|1"}},
                 {"the group is not known", -1, 1, -1, {"group|4294967295|1"}},
                 {"another negative result is a yes", -2, 0, 0, {"group|4294967295|1"}},
                 {"admitted", 0, 1, 0, {"group|4294967295|1", question}},
                 {"refused", 0, 0, -1, {"group|4294967295|1", question}},
                 {"the tool failed", 0, -1, -1, {"group|4294967295|1", question}}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        fake = FakePlatform();
        fake.results["group"] = each.group;
        fake.results["exec"] = each.answer;
        EXPECT_EQ(VEXODLQuotaCheck(4294967295U, "/t", 5000000000ULL), each.result);
        EXPECT_EQ(fake.calls, each.calls);
        EXPECT_EQ(fake.messages, Texts());
    }
}
