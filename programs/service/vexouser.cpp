// vexouser: tells whether a user may store so much more.
//
//   vexouser --quota_check UID TARGET SIZE
//
// The answer is yes when SIZE bytes fit into the user's quota on the file system of TARGET and into its free space;
// where no quota is set for the user, the free space decides. Exit status: 1 yes, 0 no, 2 wrong usage or no answer can
// be had.

#include "programs/front/diagnosis.h"
#include "programs/service/userQuota.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

namespace {

enum Answer : int { kNo = 0, kYes = 1, kNoAnswer = 2 };

template <typename Number>
bool readNumber(const char* text, Number& number) {
    const char* end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, number);
    return error == std::errc() && stop == end;
}

Answer noAnswer(const char* target) {
    report("vexouser", target, std::strerror(errno)); // NOLINT(concurrency-mt-unsafe): one thread
    return kNoAnswer;
}

Answer checkQuota(std::uint32_t uid, const char* target, std::uint64_t size) {
    struct statvfs volume = {};
    if (statvfs(target, &volume) != 0) {
        return noAnswer(target);
    }
    if (size > std::uint64_t{volume.f_bavail} * volume.f_frsize) {
        return kNo;
    }
    const QuotaRoom room = userQuotaRoom(uid, target);
    if (room.error != 0) {
        errno = room.error;
        return noAnswer(target);
    }
    return size <= room.bytes ? kYes : kNo;
}

} // namespace

int main(int argc, char** argv) {
    std::uint32_t uid = 0;
    std::uint64_t size = 0;
    if (argc != 5 || std::strcmp(argv[1], "--quota_check") != 0 || !readNumber(argv[2], uid) ||
        !readNumber(argv[4], size)) {
        (void)writeLine(STDERR_FILENO, "usage: vexouser --quota_check UID TARGET SIZE");
        return kNoAnswer;
    }
    return checkQuota(uid, argv[3], size);
}
