// convert-thumb: makes one small JPEG picture of one photo.
//
//   convert-thumb PHOTO -thumbnail 1024x1024> -quality 90 -strip -flatten -colorspace sRGB PICTURE
//
// Takes exactly this command line. PICTURE is TASK/FOLDER/NAME and PHOTO lies below TASK. PICTURE shows the photo as a
// colour-managed viewer does: upright, in sRGB, with at most 1024 pixels a side. jpegDecoder or imageDecoder does the
// work in a sandbox and never sees a name. Exit status: ExitStatus in diagnosis.h.

#include "programs/front/diagnosis.h"
#include "programs/picture/pictureFront.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace {

constexpr std::array<std::string_view, 8> kOptions = {"-thumbnail", "1024x1024>", "-quality",    "90",
                                                      "-strip",     "-flatten",   "-colorspace", "sRGB"};
constexpr int kArgumentCount = 3 + static_cast<int>(kOptions.size());

bool isExpected(int argc, char** argv) {
    return argc == kArgumentCount && std::equal(kOptions.begin(), kOptions.end(), argv + 2);
}

Worker photoWorker(int input) {
    constexpr std::array<unsigned char, 3> kJpeg = {0xFF, 0xD8, 0xFF};
    std::array<unsigned char, 3> head = {};
    const ssize_t count = pread(input, head.data(), head.size(), 0);
    Worker worker;
    if (count == static_cast<ssize_t>(head.size()) && head == kJpeg) {
        worker.argv = {"/usr/vexo/libexec/jpegDecoder"};
        worker.addressSpaceBytes = std::uint64_t{1} << 30U;
    } else {
        worker.argv = {"/usr/vexo/libexec/imageDecoder"};
        worker.addressSpaceBytes = std::uint64_t{1280} << 20U; // a quarter is its libraries
    }
    return worker;
}

} // namespace

int main(int argc, char** argv) {
    if (!isExpected(argc, argv)) {
        (void)writeLine(STDERR_FILENO, "usage: convert-thumb PHOTO -thumbnail '1024x1024>' -quality 90 -strip -flatten "
                                       "-colorspace sRGB PICTURE");
        return kUsage;
    }
    return makePicture({"convert-thumb", argv[1], argv[argc - 1]}, photoWorker);
}
