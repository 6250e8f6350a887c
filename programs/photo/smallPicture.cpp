#include "programs/photo/smallPicture.h"

#include "programs/photo/bitmapFile.h"
#include "programs/photo/fileFacts.h"
#include "programs/photo/photoColours.h"
#include "programs/photo/photoLimits.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

using vips::VError;
using vips::VImage;
using vips::VOption;
using vips::VSource;

constexpr double kWhite = 1;
constexpr double kLightGrey = 0.8;

/// How many times smaller the picture is.
double shrinkOf(const VImage& photo) {
    constexpr double kLongestSide = 1024;
    return std::max(1.0, std::max(photo.width(), photo.height()) / kLongestSide);
}

bool isAllowed(const char* loader) {
    const auto* const kind = static_cast<VipsOperationClass*>(g_type_class_peek(g_type_from_name(loader)));
    return kind != nullptr && (kind->flags & VIPS_OPERATION_BLOCKED) == 0;
}

/// libvips alone would accept only some of the brands that follow.
bool isHeif(const VSource& source) {
    const unsigned char* const head = vips_source_sniff(source.get_source(), 8);
    return head != nullptr && std::memcmp(head + 4, "ftyp", 4) == 0;
}

class Photo {
public:
    explicit Photo(const VSource& source) : source_(source) {
        const char* const loader =
            isHeif(source) ? "VipsForeignLoadHeifSource" : vips_foreign_find_load_source(source.get_source());
        if (loader != nullptr && isAllowed(loader)) {
            loader_ = loader;
        } else if (isBitmap(source)) {
            bitmap_ = readBitmap(source);
        } else {
            throw std::runtime_error("not a picture format that is decoded");
        }
    }

    [[nodiscard]] bool is(const char* format) const { return loader_.find(format) != std::string::npos; }

    /// Its lines are decoded when they are asked for, from the first to the last. WebP and JPEG 2000 are decoded at a
    /// smaller size where that is large enough.
    [[nodiscard]] VImage frame(int number) const {
        if (loader_.empty()) {
            return bitmap_;
        }
        const VImage image = load(options(number));
        if (hasTooManyPixels(image.width(), image.height())) {
            throw LimitReached(kTooManyPixels);
        }
        const double shrink = shrinkOf(image);
        if (shrink > 1 && is("Webp")) {
            return load(options(number)->set("scale", 1 / shrink));
        }
        const int halvings = std::min(std::ilogb(shrink), pages(image) - 1);
        return halvings > 0 && is("Jp2k") ? load(options(halvings)) : image;
    }

    [[nodiscard]] const VSource& source() const { return source_; }
    [[nodiscard]] bool isAnimated() const { return is("Nsgif") || is("Webp"); }

    static int pages(const VImage& image) { return vips_image_get_n_pages(image.get_image()); }

private:
    [[nodiscard]] VImage load(VOption* options) const {
        return is("Heif") ? VImage::heifload_source(source_, options) : VImage::new_from_source(source_, "", options);
    }

    [[nodiscard]] VOption* options(int page) const {
        VOption* const options =
            VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL)->set("fail_on", VIPS_FAIL_ON_TRUNCATED);
        if (is("Heif")) {
            options->set("unlimited", true); // of width and height: the number of pixels is limited here
        }
        return page > 0 ? options->set("page", page) : options;
    }

    VSource source_;
    std::string loader_;
    VImage bitmap_;
};

/// With colours as numbers that can be averaged as they are.
VImage inPlainNumbers(const VImage& photo) {
    switch (photo.interpretation()) {
    case VIPS_INTERPRETATION_B_W:
    case VIPS_INTERPRETATION_GREY16:
    case VIPS_INTERPRETATION_sRGB:
    case VIPS_INTERPRETATION_RGB16:
    case VIPS_INTERPRETATION_CMYK:
        if (photo.format() == VIPS_FORMAT_UCHAR || photo.format() == VIPS_FORMAT_USHORT) {
            return photo;
        }
        [[fallthrough]];
    default:
        return photo.colourspace(VIPS_INTERPRETATION_sRGB);
    }
}

/// Laid on a ground and made small. All of the decoding takes place here.
VImage shrunk(const VImage& photo, double ground) {
    VImage picture = inPlainNumbers(photo);
    if (picture.has_alpha()) {
        const double light = picture.interpretation() == VIPS_INTERPRETATION_CMYK ? 1 - ground : ground;
        const double most = picture.format() == VIPS_FORMAT_USHORT ? 65535 : 255;
        picture = picture.flatten(VImage::option()->set("background", std::vector<double>{light * most}));
    }
    const double scale = 1 / shrinkOf(picture);
    if (scale < 1) {
        const auto atLeastOne = [&](int side) { return std::max(scale, 1.0 / side); };
        picture =
            picture.resize(atLeastOne(picture.width()), VImage::option()->set("vscale", atLeastOne(picture.height())));
    }
    return picture.copy_memory();
}

/// How many lines can be decoded.
int wholeLines(const VImage& photo) {
    const vips::VRegion region = vips::VRegion::new_from_image(photo);
    int line = 0;
    try {
        for (; line < photo.height(); ++line) {
            region.prepare(0, line, photo.width(), 1);
        }
    } catch (const VError&) {
        vips_error_clear();
    }
    return line;
}

/// The photo with white in place of what follows its first lines. They are decoded 16 at once, and none of those with a
/// fault in one, which is not held against a small photo.
VImage firstLines(const VImage& photo, int lines) {
    constexpr int kAtOnce = 16;
    requireMostLines(lines + kAtOnce - 1, photo.height());
    return photo.crop(0, 0, photo.width(), lines)
        .embed(0, 0, photo.width(), photo.height(), VImage::option()->set("extend", VIPS_EXTEND_WHITE));
}

/// Of a photo that cannot be decoded to its end; null where there is nothing of it.
VImage shrunkRemains(const Photo& photo, double ground) {
    const std::string png = photo.is("Png") ? mendedPng(photo.source()) : "";
    const Photo readable = png.empty() ? photo : Photo(VSource::new_from_memory(png.data(), png.size()));
    const int lines = wholeLines(readable.frame(0));
    return lines == 0 ? VImage() : shrunk(firstLines(readable.frame(0), lines), ground);
}

/// Adds what libvips leaves out of what the file says.
void complete(VImage& picture, const Photo& photo) {
    const int orientation = photo.is("Png") ? orientationInPng(photo.source()) : 0;
    const std::string_view profile = photo.is("Jp2k") ? profileInJpeg2000(photo.source()) : std::string_view();
    if (orientation != 0) {
        picture.set(VIPS_META_ORIENTATION, orientation);
    }
    if (!profile.empty()) {
        vips_image_set_blob_copy(picture.get_image(), VIPS_META_ICC_NAME, profile.data(), profile.size());
    }
}

VImage pictureOf(const Photo& photo, int frame, double ground) {
    VImage decoded; // kept until the end: libvips 8.14 frees the profile of a HEIC file with it
    VImage small;
    try {
        decoded = photo.frame(frame);
        small = shrunk(decoded, ground);
    } catch (const VError&) {
        small = photo.is("Png") || photo.is("Tiff") ? shrunkRemains(photo, ground) : VImage();
        if (small.is_null()) {
            throw;
        }
    }
    complete(small, photo);
    const bool turned = photo.is("Heif") || photo.is("Jxl"); // by their decoders
    if (!turned) {
        small = small.autorot();
    }
    return onScreen(small, photo.is("Heif") ? &photo.source() : nullptr);
}

} // namespace

VImage smallPicture(const VSource& source) {
    constexpr int kMostFrames = 8; // each is decoded with all those before it
    constexpr double kNearlyWhite = 250;
    const Photo photo(source);
    const VImage first = photo.frame(0);
    const int frames = photo.isAnimated() ? std::min(kMostFrames, Photo::pages(first)) : 1;
    for (int frame = 0; frame < frames; ++frame) {
        VImage onWhite = pictureOf(photo, frame, kWhite);
        if (!first.has_alpha() || onWhite.min() < kNearlyWhite) {
            return onWhite;
        }
        VImage onGrey = pictureOf(photo, frame, kLightGrey);
        if (onGrey.max() >= kNearlyWhite) {
            return onGrey;
        }
    }
    return pictureOf(photo, 0, kWhite);
}
