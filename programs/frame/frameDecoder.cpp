// frameDecoder: the picture of one second of one video, decoded; the worker of ffmpeg.
//
//   frameDecoder SECOND [unfinished] <VIDEO >PICTURE
//
// VIDEO is read by its descriptor, in any order; of an unfinished one bytes may be missing. PICTURE is a JPEG. It
// confines itself before it reads. Its word on descriptor 3 (lifeline.h), and then exit status 0, tell that PICTURE is
// whole; else the exit status is 1, with the reason as the last line on standard error.

#include "programs/confinement/lifeline.h"
#include "programs/frame/frameSearch.h"
#include "programs/frame/jpegPicture.h"
#include "programs/media/messages.h"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>

namespace {

/// Frames are large and soon given back. Memory that comes from the kernel once and in large pages, where it has them,
/// saves a quarter of the time of a picture.
void prepareMemory() {
    constexpr int kArea = 32 << 20; // the most that the C library keeps for itself; touched only where it is used
    constexpr std::size_t kLargePage = 2 << 20;
    mallopt(M_MMAP_THRESHOLD, kArea);
    mallopt(M_TOP_PAD, kArea);
    mallopt(M_TRIM_THRESHOLD, 2 * kArea);
    std::size_t size = kArea - kLargePage;
    void* const area = std::malloc(size);
    void* begin = area;
    if (std::align(kLargePage, kLargePage, begin, size) != nullptr) {
        madvise(begin, size, MADV_HUGEPAGE);
    }
    std::free(area);
}

void writeAll(const std::uint8_t* data, std::size_t size) {
    while (size > 0) {
        const ssize_t count = write(STDOUT_FILENO, data, size);
        if (count < 0 && errno != EINTR) {
            throw MediaError("cannot write the picture");
        }
        data += count > 0 ? count : 0;
        size -= count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

void makePicture(int second, Download download) {
    VideoFile file(STDIN_FILENO, download);
    const Libav<AVFrame> frame = findFrame(file, second);
    const Libav<AVPacket> picture = makeJpeg(*frame, file.video(), file.pixelRatio(*frame));
    writeAll(picture->data, static_cast<std::size_t>(picture->size));
    tell(Word::whole);
}

int fail(const char* what) {
    const std::string complaint = lastComplaint();
    (void)std::fprintf(stderr, "%s%s%s\n", what, complaint.empty() ? "" : "; ", complaint.c_str());
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    const bool unfinished = argc == 3 && std::strcmp(argv[2], "unfinished") == 0;
    if (argc != 2 && !unfinished) {
        return fail("usage: frameDecoder SECOND [unfinished] <VIDEO >PICTURE");
    }
    prepareMemory();
    collectMessages();
    confineWorker(Liberty::none);
    try {
        const int second = std::atoi(argv[1]); // NOLINT(cert-err34-c): ffmpeg has checked it
        makePicture(second, unfinished ? Download::unfinished : Download::finished);
        return EXIT_SUCCESS;
    } catch (const std::runtime_error& reason) {
        return fail(reason.what());
    } catch (const std::bad_alloc&) {
        return fail("the memory limit was reached");
    }
}
