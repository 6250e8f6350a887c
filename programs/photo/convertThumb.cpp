// convert-thumb: makes one small JPEG picture of one photo.
//
//   convert-thumb PHOTO -thumbnail 1024x1024> -quality 90 -strip -flatten -colorspace sRGB PICTURE
//
// Takes exactly this command line. PICTURE is TASK/FOLDER/NAME and PHOTO lies below TASK. PICTURE shows the photo as a
// colour-managed viewer does: upright, in sRGB, with at most 1024 pixels a side. jpegDecoder or imageDecoder does the
// work, confined, and never sees a name. Exit status: ExitStatus in diagnosis.h.

#include "programs/front/diagnosis.h"
#include "programs/picture/newPicture.h"
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
    constexpr rlim_t kMostSeconds = 20;
    if (count == static_cast<ssize_t>(head.size()) && head == kJpeg) {
        return {{"/usr/vexo/libexec/jpegDecoder"}, {std::uint64_t{1} << 30U, kMostSeconds, kMostPictureBytes}};
    }
    constexpr rlim_t kMostBytes = std::uint64_t{1280} << 20U; // a quarter is its libraries
    return {{"/usr/vexo/libexec/imageDecoder"}, {kMostBytes, kMostSeconds, kMostPictureBytes}};
}

} // namespace

int main(int argc, char** argv) {
    if (!isExpected(argc, argv)) {
        (void)writeLine(STDERR_FILENO, "usage: convert-thumb PHOTO -thumbnail '1024x1024>' -quality 90 -strip -flatten "
                                       "-colorspace sRGB PICTURE");
        return kUsage;
    }
    constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 30U; // a tenth is much for a photo
    return makePicture({"convert-thumb", argv[1], argv[argc - 1], kMostBytes}, photoWorker);
}
