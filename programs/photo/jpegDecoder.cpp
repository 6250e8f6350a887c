// jpegDecoder: a small picture of one JPEG photo; a worker of convert-thumb.
//
//   jpegDecoder <PHOTO >PICTURE
//
// PHOTO is read forward once. PICTURE is a JPEG as a colour-managed viewer shows the photo: upright, in sRGB. It
// confines itself before it reads. Its word on descriptor 3 (lifeline.h), and then exit status 0, tell that PICTURE is
// whole; else the exit status is another one of ExitStatus in diagnosis.h, with the reason as the last line on standard
// error.

#include "programs/colour/colourConversion.h"
#include "programs/confinement/lifeline.h"
#include "programs/front/diagnosis.h"
#include "programs/photo/jpegPhoto.h"

#include <lcms2.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <vector>

namespace {

constexpr unsigned kLongestSide = 1024;

// Size -------------------------------------------------------------------------------------------------------------

struct Size {
    unsigned width;
    unsigned height;
};

Size pictureSize(const JpegPhoto& photo) {
    const unsigned longer = std::max(photo.width(), photo.height());
    if (longer <= kLongestSide) {
        return {photo.width(), photo.height()};
    }
    const auto side = [&](unsigned original) {
        return std::max(1U, static_cast<unsigned>(std::lround(1.0 * original * kLongestSide / longer)));
    };
    return {side(photo.width()), side(photo.height())};
}

/// The decoder shrinks to eighths by leaving out what is finer. At least so many times the size is left to the filter.
unsigned eighthsFor(const JpegPhoto& photo) {
    constexpr double kLeft = 1.4;
    const double longer = std::max(photo.width(), photo.height());
    unsigned eighths = 1;
    while (eighths < DCTSIZE && longer * eighths < DCTSIZE * kLeft * kLongestSide) {
        ++eighths;
    }
    return eighths;
}

void shrink(const Component& component, const Planes& into) {
    Planes from = component.samples.planes();
    from.format.width = static_cast<unsigned>(std::ceil(component.width));
    from.format.height = static_cast<unsigned>(std::ceil(component.height));
    from.format.active_region = {0, 0, component.width, component.height};
    convertColours(from, into, ZIMG_RESIZE_LANCZOS);
}

// Colours ----------------------------------------------------------------------------------------------------------

/// Turns the pixels of a line into red, green and blue.
using Conversion = std::function<void(const JSAMPLE* from, JSAMPLE* to, unsigned width)>;

bool hasInks(const JpegPhoto& photo) {
    return photo.colours() == JCS_CMYK || photo.colours() == JCS_YCCK;
}

/// Into sRGB; none without a profile, or with one that is not of such a photo.
Conversion conversionByProfile(JpegPhoto& photo) {
    const std::vector<unsigned char> bytes = photo.profile();
    const std::unique_ptr<void, decltype(&cmsCloseProfile)> profile(
        cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())), cmsCloseProfile);
    const bool grey = photo.colours() == JCS_GRAYSCALE;
    const auto space = grey ? cmsSigGrayData : hasInks(photo) ? cmsSigCmykData : cmsSigRgbData;
    if (!profile || cmsGetColorSpace(profile.get()) != space) {
        return nullptr;
    }
    const cmsUInt32Number samples = grey ? TYPE_GRAY_8 : hasInks(photo) ? TYPE_CMYK_8_REV : TYPE_RGB_8;
    const std::unique_ptr<void, decltype(&cmsCloseProfile)> screen(cmsCreate_sRGBProfile(), cmsCloseProfile);
    auto* const transform = cmsCreateTransform(profile.get(), samples, screen.get(), TYPE_RGB_8,
                                               INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_BLACKPOINTCOMPENSATION);
    if (transform == nullptr) {
        return nullptr;
    }
    return
        [transform](const JSAMPLE* from, JSAMPLE* to, unsigned width) { cmsDoTransform(transform, from, to, width); };
}

/// What four inks let through, as viewers show them that know nothing of the inks.
void multiplyInks(const JSAMPLE* from, JSAMPLE* to, unsigned width) {
    for (const JSAMPLE* const end = from + std::size_t{4} * width; from < end; from += 4, to += 3) {
        std::transform(from, from + 3, to, [&](int ink) { return static_cast<JSAMPLE>((ink * from[3] + 127) / 255); });
    }
}

/// A photo's components in the size of the picture.
struct SmallPhoto {
    PlanarPicture picture;
    std::optional<PlanarPicture> black; ///< the fourth ink
};

SmallPhoto shrunk(JpegPhoto& photo) {
    const Size size = pictureSize(photo);
    const bool luma = photo.colours() == JCS_YCbCr || photo.colours() == JCS_YCCK;
    const std::vector<Component> components = photo.decode(eighthsFor(photo));
    const zimg_color_family_e family = components.size() < 3 ? ZIMG_COLOR_GREY : luma ? ZIMG_COLOR_YUV : ZIMG_COLOR_RGB;
    SmallPhoto small = {PlanarPicture(screenFormat(size.width, size.height, family)), std::nullopt};
    for (std::size_t i = 0; i < std::min<std::size_t>(components.size(), 3); ++i) {
        shrink(components[i], small.picture.plane(i));
    }
    if (hasInks(photo)) {
        small.black.emplace(screenFormat(size.width, size.height, ZIMG_COLOR_GREY));
        shrink(components[3], small.black->planes());
    }
    return small;
}

void lumaToRgb(PlanarPicture& picture) {
    zimgxx::zimage_format format = picture.planes().format;
    if (format.color_family == ZIMG_COLOR_YUV) {
        PlanarPicture rgb(screenFormat(format.width, format.height, ZIMG_COLOR_RGB));
        convertColours(picture.planes(), rgb.planes());
        picture = std::move(rgb);
    }
}

// Writing ----------------------------------------------------------------------------------------------------------

/// Where the pixels of an upright line are in a plane that EXIF's orientation describes.
struct Turn {
    Turn(int orientation, Size size, std::ptrdiff_t stride);

    Size upright;
    std::ptrdiff_t first = 0;
    std::ptrdiff_t right = 1; ///< from one pixel to the next
    std::ptrdiff_t down;
};

Turn::Turn(int orientation, Size size, std::ptrdiff_t stride) : upright(size), down(stride) {
    const auto isOneOf = [&](std::initializer_list<int> list) {
        return std::find(list.begin(), list.end(), orientation) != list.end();
    };
    if (isOneOf({2, 3, 7, 8})) {
        first += size.width - 1;
        right = -right;
    }
    if (isOneOf({3, 4, 6, 7})) {
        first += (size.height - 1) * stride;
        down = -down;
    }
    if (orientation > 4) {
        std::swap(right, down);
        std::swap(upright.width, upright.height);
    }
}

class JpegWriter {
public:
    JpegWriter(Size size, int components, J_COLOR_SPACE colours) {
        constexpr int kQuality = 90;
        jpeg_.err = jpeg_std_error(&errors_); // its errors end this program
        jpeg_create_compress(&jpeg_);
        jpeg_stdio_dest(&jpeg_, stdout);
        jpeg_.image_width = size.width;
        jpeg_.image_height = size.height;
        jpeg_.input_components = components;
        jpeg_.in_color_space = colours;
        jpeg_set_defaults(&jpeg_);
        jpeg_set_quality(&jpeg_, kQuality, TRUE);
        jpeg_.comp_info[0].h_samp_factor = 1; // all colours kept
        jpeg_.comp_info[0].v_samp_factor = 1;
        jpeg_start_compress(&jpeg_, TRUE);
    }
    JpegWriter(const JpegWriter&) = delete;
    JpegWriter& operator=(const JpegWriter&) = delete;
    ~JpegWriter() { jpeg_destroy_compress(&jpeg_); }

    void writeLine(JSAMPLE* line) { jpeg_write_scanlines(&jpeg_, &line, 1); }
    void finish() { jpeg_finish_compress(&jpeg_); }

private:
    jpeg_compress_struct jpeg_ = {};
    jpeg_error_mgr errors_ = {};
};

/// One component of the picture, and what its samples are combined with.
struct Plane {
    const JSAMPLE* samples;
    JSAMPLE flip = 0;
};

/// Four inks become what they let through. Most photos have them so; those with luma have cyan, magenta and yellow as
/// what is missing of red, green and blue.
std::vector<Plane> planesOf(const SmallPhoto& photo, bool inverted, bool luma) {
    std::vector<Plane> planes;
    for (const void* const samples : photo.picture.planes().data) {
        const bool flips = photo.black && inverted == luma;
        if (samples != nullptr) {
            planes.push_back({static_cast<const JSAMPLE*>(samples), static_cast<JSAMPLE>(flips ? 0xFF : 0)});
        }
    }
    if (photo.black) {
        planes.push_back({photo.black->row<JSAMPLE>(0, 0), static_cast<JSAMPLE>(inverted ? 0 : 0xFF)});
    }
    return planes;
}

void writePicture(const std::vector<Plane>& planes, const Turn& turn, const Conversion& conversion,
                  J_COLOR_SPACE colours) {
    const std::size_t count = planes.size();
    std::vector<JSAMPLE> line(count * turn.upright.width);
    std::vector<JSAMPLE> converted(std::size_t{3} * turn.upright.width);
    JpegWriter writer(turn.upright, conversion ? 3 : static_cast<int>(count), conversion ? JCS_RGB : colours);
    for (unsigned y = 0; y < turn.upright.height; ++y) {
        for (std::size_t i = 0; i < count; ++i) {
            const JSAMPLE* pixel = planes[i].samples + turn.first + y * turn.down;
            for (std::size_t at = i; at < line.size(); at += count, pixel += turn.right) {
                line[at] = *pixel ^ planes[i].flip;
            }
        }
        if (conversion) {
            conversion(line.data(), converted.data(), turn.upright.width);
        }
        writer.writeLine(conversion ? converted.data() : line.data());
    }
    writer.finish();
}

void makePicture() {
    JpegPhoto photo(stdin);
    SmallPhoto small = shrunk(photo);
    Conversion conversion = conversionByProfile(photo);
    if (!conversion && hasInks(photo)) {
        conversion = multiplyInks;
    }
    if (conversion) {
        lumaToRgb(small.picture);
    }
    const Planes& planes = small.picture.planes();
    const Turn turn(photo.orientation(), {planes.format.width, planes.format.height}, planes.stride[0]);
    writePicture(planesOf(small, photo.fromAdobe(), photo.colours() == JCS_YCCK), turn, conversion, photo.colours());
    if (std::fflush(stdout) != 0) {
        throw std::runtime_error("cannot write the picture");
    }
    tell(Word::whole);
}

int fail(ExitStatus status, const char* what) {
    (void)std::fprintf(stderr, "%s\n", what);
    return status;
}

} // namespace

int main() {
    confineWorker(Liberty::none);
    try {
        makePicture();
        return kMade;
    } catch (const std::bad_alloc&) {
        return fail(kLimitReached, "the memory limit was reached");
    } catch (const std::runtime_error& reason) {
        return fail(kNoPicture, reason.what());
    }
}
