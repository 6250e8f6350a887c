// The library and the host layer called from many threads at once. Only the programs at the fixed paths and the link to
// the download directory are not the real ones.

#include "platform/process.h"
#include "platform/processRunner.h"
#include "platform/thumbnailDatabase.h"
#include "tests/host/loopbackEngine.h"
#include "tests/host/sandbox.h"
#include "thumbnail/thumbnailGenerator.h"
#include "util/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <future>

static const Sandbox sandbox;
static const std::string kDownloadLink = "/var/services/download";

int VLIBCExec(const char* /*path*/, const char* /*arg1*/, const char*, const char*, const char*) {
    return 1; // yes
}

int VLIBCExecv(const char* /*path*/, char* const argv[], int /*flag*/) {
    while (argv[1] != nullptr) {
        ++argv;
    }
    // As the programs do: another thread's run may look at the same picture at this moment.
    std::filesystem::rename(sandbox.write("picture" + std::to_string(gettid()), "a JPEG"), argv[0]);
    return 0;
}

int VEXOUtils::ProcessRunner::run(bool /*capture*/, bool /*wait*/) {
    output_ = R"({"duration": 12})";
    return 0;
}

extern "C" __attribute__((visibility("default"))) ssize_t readlink(const char* path, char* buffer, size_t size) {
    return path == kDownloadLink ? static_cast<ssize_t>(sandbox.root.copy(buffer, size))
                                 : readlinkat(AT_FDCWD, path, buffer, size);
}

extern "C" __attribute__((visibility("default"))) int lstat(const char* path, struct stat* status) {
    *status = {};
    status->st_mode = S_IFLNK;
    return path == kDownloadLink ? 0 : fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

namespace {

constexpr int kFiveFramesAndAPhoto = 6;

void callEverything(int thread) {
    const std::string temporary = sandbox.write("temporary" + std::to_string(thread) + "/file", "");
    ThumbnailGenerator generator(7, true);
    EXPECT_EQ(generator.getTotalThumbnailNumber(), kFiveFramesAndAPhoto);
    EXPECT_EQ(generator.generate(), 0);
    EXPECT_EQ(TmpVolumeSpaceCheck(), 0);
    EXPECT_EQ(VEXODLQuotaCheck(0, "/", 1), 0);
    for (int child = 0; child < 50; ++child) { // one of the library is not taken for one of the caller
        EXPECT_EQ(RemoveTaskTemp(temporary.c_str(), 0), 0);
        EXPECT_EQ(system("exit 7"), 7 << 8);
    }
    EXPECT_FALSE(std::filesystem::exists(temporary));
}

TEST(Threads, CallTheLibrarySideBySide) {
    const std::string task = R"([{"hashString":"aa","downloadDir":")" + sandbox / "7" + R"(","files":[
        {"name":"a.mkv","length":52428800,"bytesCompleted":0},{"name":"b.jpg","length":9,"bytesCompleted":9}],
        "fileStats":[{"wanted":1},{"wanted":1}]}])";
    const LoopbackEngine engine([&](const std::string&) { return success(task); });
    setenv("VEXODL_RPC_URL", engine.url.c_str(), 1);
    setenv("VEXODL_DATABASE", (sandbox / "thumbnail.db").c_str(), 1);
    std::vector<std::future<void>> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.push_back(std::async(std::launch::async, callEverything, thread));
    }
    threads.clear(); // waits for them
    Json::Value reply;
    EXPECT_EQ(DownloadThumbnailDBGetByTaskId(7, &reply), 0);
    EXPECT_EQ(static_cast<int>(reply["data"].size()), kFiveFramesAndAPhoto);
}

} // namespace
