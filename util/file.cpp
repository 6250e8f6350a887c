#include "util/file.h"

#include "platform/group.h"
#include "platform/process.h"
#include "util/cancellation.h"

#include <sys/stat.h>
#include <sys/vfs.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

// First arguments of every message: where it was written.
#define HERE "file", __LINE__

namespace {

constexpr const char* kDownloadLink = "/var/services/download";
constexpr const char* kVolumeTool = "/usr/vexo/bin/vexofstool";
constexpr const char* kUserTool = "/usr/vexo/sbin/vexouser";
constexpr const char* kRemovalProgram = "/bin/rm";

constexpr int kYes = 1; // what the service's tools answer

constexpr std::int64_t kLowSpaceBytes = 1048576;

constexpr int kLogErrors = 0x7B;
constexpr int kDropErrors = 0x3B;

bool isDirectory(const char* path) {
    struct stat status = {};
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

/// Bytes available to unprivileged users. The block size counts as a signed 32-bit value; the product wraps.
std::int64_t availableBytes(const struct statfs64& volume) {
    const std::int64_t blockSize = static_cast<std::int32_t>(volume.f_bsize);
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(volume.f_bavail) *
                                     static_cast<std::uint64_t>(blockSize));
}

} // namespace

int GetTmpDownloadDir(char* buf, int size) {
    const CancellationBlock block;
    if (size < 0 || buf == nullptr) {
        syslog(LOG_ERR, "%s:%d Bad parameters", HERE);
        return -1;
    }
    const auto capacity = static_cast<std::size_t>(size);
    std::memset(buf, 0, capacity);
    const ssize_t length = readlink(kDownloadLink, buf, capacity);
    if (length < 0) {
        return -1;
    }
    if (length == size) { // cut, or without room for the terminator
        buf[size - 1] = '\0';
        return -1;
    }
    if (!isDirectory(buf)) {
        return -1;
    }
    return VLIBCExec(kVolumeTool, "--check-volume-writable", buf, nullptr, nullptr) == kYes ? 0 : -1;
}

int TmpVolumeSpaceCheck() {
    const CancellationBlock block;
    std::array<char, 1024> directory = {};
    if (GetTmpDownloadDir(directory.data(), static_cast<int>(directory.size())) < 0) {
        syslog(LOG_ERR, "%s:%d Failed to get TmpDownloadDir.", HERE);
        return -1;
    }
    if (directory[0] == '\0') {
        return 0;
    }
    struct statfs64 volume = {};
    if (statfs64(directory.data(), &volume) != 0) {
        syslog(LOG_ERR, "%s:%d statfs() failed [%s]", HERE, directory.data());
        return -1;
    }
    return availableBytes(volume) < kLowSpaceBytes ? 1 : 0;
}

int RemoveTaskTemp(const char* path, int flag) {
    const CancellationBlock block;
    const int options = flag != 0 ? kLogErrors : kDropErrors;
    if (VLIBCExecl(kRemovalProgram, options, "-rf", path, static_cast<const char*>(nullptr)) != 0) {
        syslog(LOG_ERR, "%s:%d Failed to remove path [%s]", HERE, path);
        return -1;
    }
    return 0;
}

int VEXODLQuotaCheck(unsigned int uid, const char* target, unsigned long long size) {
    const CancellationBlock block;
    const int isAdministrator = VLIBGroupIsAdminGroupMemByUid(uid, 1);
    if (isAdministrator == -1) {
        return -1;
    }
    std::array<char, 128> uidText = {};
    std::array<char, 128> sizeText = {};
    static_cast<void>(std::snprintf(uidText.data(), uidText.size(), "%u", uid));
    static_cast<void>(std::snprintf(sizeText.data(), sizeText.size(), "%llu", size));
    if (isAdministrator != 0) {
        return 0;
    }
    return VLIBCExec(kUserTool, "--quota_check", uidText.data(), target, sizeText.data()) == kYes ? 0 : -1;
}
