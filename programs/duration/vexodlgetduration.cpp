// vexodlgetduration: prints the length of a media file.
//
//   vexodlgetduration --path FILE [--debug_mode]
//
// Prints {"duration": N} on standard output: whole seconds, what is left of the last one dropped, but at least 1. Of an
// unfinished file, whose name ends in .part, what is missing counts too. With --debug_mode the decoder's own messages
// go to standard error too. Exit status: 0 printed; otherwise nothing is printed, see ExitStatus in diagnosis.h.

#include "programs/confinement/confinement.h"
#include "programs/duration/filmLength.h"
#include "programs/front/diagnosis.h"
#include "programs/front/taskInput.h"
#include "programs/media/mediaFile.h"
#include "util/printableText.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string_view>

namespace {

constexpr const char* kProgram = "vexodlgetduration";
constexpr const char* kDownloadLink = "/var/services/download";

std::string linkTarget(const char* path) {
    std::array<char, PATH_MAX> target = {};
    const ssize_t length = readlink(path, target.data(), target.size());
    return {target.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

/// A file of a task is opened like every other input of a task; one that lies elsewhere, from the root.
Descriptor openMedia(const std::string& path) {
    for (const std::string& downloads : {linkTarget(kDownloadLink), std::string(kDownloadLink)}) {
        const std::string inDownloads = pathBelow(downloads, path);
        const std::size_t slash = inDownloads.find('/');
        if (!downloads.empty() && slash != std::string::npos) {
            const std::string task = path.substr(0, path.size() - inDownloads.size() + slash);
            return openTaskInput(openTaskDirectory(task), inDownloads.substr(slash + 1));
        }
    }
    return openRegularFile(path);
}

/// For SIGXCPU: has libav end at its next read. Where it has not come to one a second later, only this is left.
void endInTime(int /*signal*/) {
    constexpr std::string_view kLine = "vexodlgetduration: the limit of processor time was reached\n";
    if (MediaFile::isStopped()) {
        (void)!write(STDERR_FILENO, kLine.data(), kLine.size());
        _exit(kLimitReached);
    }
    MediaFile::stopReading();
}

/// libav's own would write what a file holds to the terminal as it is.
void showMessage(void* part, int level, const char* format, va_list arguments) {
    constexpr std::size_t kLongest = 1000;
    static int startsLine = 1;
    std::array<char, kLongest> line = {};
    if (level <= AV_LOG_INFO) {
        av_log_format_line2(part, level, format, arguments, line.data(), line.size(), &startsLine);
        const std::string_view text = line.data();
        (void)writeLine(STDERR_FILENO, printable(text.substr(0, text.find_last_not_of("\r\n") + 1), kLongest));
    }
}

void ignoreMessage(void* /*part*/, int /*level*/, const char* /*format*/, va_list /*arguments*/) {}

bool confineItself() {
    constexpr Limits kLimits = {320 << 20, 3, RLIM_INFINITY};
    return std::signal(SIGXCPU, endInTime) != SIG_ERR && limitResources(kLimits) && confine(Liberty::systemLog);
}

int fail(ExitStatus status, const std::string& path, const std::string& what) {
    report(kProgram, path, what);
    return status;
}

/// After a failure. libav may have called a lack of memory something else.
int failToRead(const std::string& path, const char* what) {
    const bool outOfMemory = errno == ENOMEM;
    if (MediaFile::isStopped() || outOfMemory) {
        return fail(kLimitReached, path,
                    outOfMemory ? "the memory limit was reached" : "the limit of processor time was reached");
    }
    return fail(kNoPicture, path, what);
}

int printDuration(const std::string& path, bool verbose) {
    const Descriptor media = openMedia(path);
    if (!media) {
        return fail(kBadInput, path, std::strerror(errno)); // NOLINT(concurrency-mt-unsafe): one thread
    }
    openlog(kProgram, LOG_PID | LOG_NDELAY, LOG_USER); // the last socket this process can open
    if (!confineItself()) {
        return fail(kNotConfined, path, "the kernel takes no limit or no system call filter");
    }
    av_log_set_callback(verbose ? showMessage : ignoreMessage);
    errno = 0;
    try {
        const Download download = isUnfinished(path) ? Download::unfinished : Download::finished;
        const std::int64_t seconds = std::max<std::int64_t>(lengthOf(media.get(), download) / AV_TIME_BASE, 1);
        return writeLine(STDOUT_FILENO, "{\"duration\": " + std::to_string(seconds) + "}") ? kMade : kBadOutput;
    } catch (const std::exception& error) { // not a media file, or no memory
        return failToRead(path, error.what());
    }
}

} // namespace

int main(int argc, char** argv) {
    const bool verbose = argc == 4 && std::strcmp(argv[3], "--debug_mode") == 0;
    if ((argc != 3 && !verbose) || std::strcmp(argv[1], "--path") != 0) {
        (void)writeLine(STDERR_FILENO, "usage: vexodlgetduration --path FILE [--debug_mode]");
        return kUsage;
    }
    return printDuration(argv[2], verbose);
}
