#include "programs/photo/photoWorker.h"

#include "programs/photo/gifOutline.h"
#include "programs/photo/jpegOutline.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace {

using namespace std::string_view_literals;

/// A picture format: what ImageMagick calls it, and what it begins with after `offset` bytes.
struct Format {
    const char* coder;
    std::size_t offset;
    std::string_view mark;
};

constexpr std::array<Format, 14> kFormats = {{
    {"jpeg", 0, "\xff\xd8\xff"sv},
    {"png", 0, "\x89PNG\r\n\x1a\n"sv},
    {"gif", 0, "GIF87a"sv},
    {"gif", 0, "GIF89a"sv},
    {"bmp", 0, "BM"sv},
    {"tiff", 0, "II*\0"sv},
    {"tiff", 0, "MM\0*"sv},
    {"webp", 8, "WEBPVP8"sv},
    {"heic", 4, "ftypheic"sv},
    {"heic", 4, "ftypheix"sv},
    {"heic", 4, "ftypmif1"sv},
    {"heic", 4, "ftypmsf1"sv},
    {"avif", 4, "ftypavif"sv},
    {"avif", 4, "ftypavis"sv},
}};

const char* coderOf(int input) {
    std::array<char, 16> head = {};
    const ssize_t count = pread(input, head.data(), head.size(), 0);
    const std::string_view bytes(head.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    const auto* format = std::find_if(kFormats.begin(), kFormats.end(), [&](const Format& candidate) {
        return bytes.size() > candidate.offset &&
               bytes.substr(candidate.offset, candidate.mark.size()) == candidate.mark;
    });
    return format == kFormats.end() ? nullptr : format->coder;
}

/// The size hint with which the JPEG decoder shrinks as it decodes, to eighths of the picture. The longer side stays at
/// least twice the thumbnail's, so that nothing can be seen of it.
std::string decoderSize(const JpegOutline& outline) {
    constexpr unsigned kEighths = 8;
    constexpr unsigned kEnough = 2 * 1024;
    const unsigned longer = std::max(outline.width, outline.height);
    unsigned divisor = kEighths;
    while (divisor > 1 && longer * ((kEighths + divisor - 1) / divisor) < kEighths * kEnough) {
        --divisor;
    }
    return std::to_string(outline.width / divisor) + 'x' + std::to_string(outline.height / divisor);
}

} // namespace

std::variant<Worker, Refusal> photoWorker(int input) {
    constexpr std::uint64_t kMostPixels = 400'000'000;
    const char* coder = coderOf(input);
    if (coder == nullptr) {
        return Refusal{kNoPicture, "not a picture format that is decoded"};
    }
    if (coder == "gif"sv && !holdsWholeGif(input)) {
        return Refusal{kNoPicture, "the picture is cut short"};
    }
    Worker worker;
    worker.argv = {"/usr/bin/convert-im6.q16"};
    if (coder == "jpeg"sv) {
        const JpegOutline outline = outlineJpeg(input);
        if (!outline.complete) {
            return Refusal{kNoPicture, "the picture is cut short"};
        }
        if (std::uint64_t{outline.width} * outline.height > kMostPixels) {
            return Refusal{kLimitReached, "the limit of 400 million pixels was reached"};
        }
        worker.argv.insert(worker.argv.end(), {"-define", "jpeg:size=" + decoderSize(outline)});
    }
    worker.argv.insert(worker.argv.end(), {std::string(coder) + ":fd:0[0]", "-thumbnail", "1024x1024>", "-auto-orient",
                                           "-quality", "90", "-strip", "-flatten", "-colorspace", "sRGB", "jpeg:fd:1"});
    worker.visible = {VEXODL_PHOTO_POLICY, "/etc/alternatives", "/etc/ld.so.cache"};
    worker.environment = {"MAGICK_CONFIGURE_PATH=" VEXODL_PHOTO_POLICY, "MAGICK_THREAD_LIMIT=1"};
    return worker;
}
