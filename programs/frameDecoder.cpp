// frameDecoder: the picture of one second of one video, decoded; ffmpeg runs it in its sandbox.
//
//   frameDecoder SECOND <VIDEO >PICTURE
//
// VIDEO is read by its descriptor, in any order; PICTURE is a JPEG. One byte on descriptor 3, and then exit status 0,
// tell that PICTURE is whole; else the exit status is 1, with the reason as the last line on standard error.

#include "programs/frameSearch.h"
#include "programs/jpegPicture.h"
#include "programs/messages.h"
#include "programs/sandbox.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace {

void writeAll(const std::uint8_t* data, std::size_t size) {
    while (size > 0) {
        const ssize_t count = write(STDOUT_FILENO, data, size);
        if (count < 0 && errno != EINTR) {
            throw NoPicture("cannot write the picture");
        }
        data += count > 0 ? count : 0;
        size -= count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

void makePicture(int second) {
    VideoFile file(STDIN_FILENO);
    const Libav<AVPacket> picture = makeJpeg(findFrame(file, second), file.video());
    writeAll(picture->data, static_cast<std::size_t>(picture->size));
    (void)!write(kLifeline, "", 1); // without one who listens there, the exit status tells
}

int fail(const char* what) {
    const std::string complaint = lastComplaint();
    (void)std::fprintf(stderr, "%s%s%s\n", what, complaint.empty() ? "" : "; ", complaint.c_str());
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return fail("usage: frameDecoder SECOND <VIDEO >PICTURE");
    }
    collectMessages();
    try {
        makePicture(std::atoi(argv[1])); // NOLINT(cert-err34-c): ffmpeg has checked it
        return EXIT_SUCCESS;
    } catch (const NoPicture& reason) {
        return fail(reason.what());
    } catch (const std::bad_alloc&) {
        return fail("the memory limit was reached");
    }
}
