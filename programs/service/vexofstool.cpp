// vexofstool: tells whether a directory lies on a volume that can be written.
//
//   vexofstool --check-volume-writable DIR
//
// Exit status: 1 yes, 0 no, 2 wrong usage or DIR is no directory that can be examined.

#include "programs/front/diagnosis.h"
#include "util/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

enum Answer : int { kNo = 0, kYes = 1, kNoAnswer = 2 };

/// A file without a name where the file system has that, else one that is removed at once.
Descriptor makeFile(const Descriptor& directory) {
    const int nameless = openat(directory.get(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (nameless >= 0 || errno != EOPNOTSUPP) {
        return Descriptor(nameless);
    }
    std::array<char, 64> name = {};
    (void)std::snprintf(name.data(), name.size(), ".volumeCheck.%d", static_cast<int>(getpid()));
    Descriptor file(openat(directory.get(), name.data(), O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (file) {
        unlinkat(directory.get(), name.data(), 0);
    }
    return file;
}

Answer checkVolumeWritable(const char* path) {
    const Descriptor directory(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct statvfs volume = {};
    if (!directory || fstatvfs(directory.get(), &volume) != 0) {
        report("vexofstool", path, std::strerror(errno)); // NOLINT(concurrency-mt-unsafe): one thread
        return kNoAnswer;
    }
    if ((volume.f_flag & ST_RDONLY) != 0) {
        return kNo;
    }
    const Descriptor file = makeFile(directory);
    return file && write(file.get(), "", 1) == 1 ? kYes : kNo;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3 || std::strcmp(argv[1], "--check-volume-writable") != 0) {
        (void)writeLine(STDERR_FILENO, "usage: vexofstool --check-volume-writable DIR");
        return kNoAnswer;
    }
    return checkVolumeWritable(argv[2]);
}
