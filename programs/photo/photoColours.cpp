#include "programs/photo/photoColours.h"

#include "programs/colour/colourConversion.h"

#include <libheif/heif.h>

#include <memory>
#include <optional>

namespace {

using vips::VImage;

template <typename Type, void (*release)(Type*)>
struct Releasing {
    void operator()(Type* object) const { release(object); }
};
template <typename Type, void (*release)(Type*)>
using Owned = std::unique_ptr<Type, Releasing<Type, release>>;

/// Primaries and transfer by their numbers in ITU-T H.273, which are those of zimg too.
struct Colours {
    zimg_color_primaries_e primaries;
    zimg_transfer_characteristics_e transfer;
};

/// The primaries of the older standards differ little from sRGB's, and their curves are shown as its.
std::optional<Colours> shownColours(int primaries, int transfer) {
    const bool wide = primaries == ZIMG_PRIMARIES_BT2020 || primaries == ZIMG_PRIMARIES_ST431_2 ||
                      primaries == ZIMG_PRIMARIES_ST432_1;
    const bool high = transfer == ZIMG_TRANSFER_ST2084 || transfer == ZIMG_TRANSFER_ARIB_B67;
    if (!wide && !high) {
        return std::nullopt;
    }
    return Colours{wide ? static_cast<zimg_color_primaries_e>(primaries) : ZIMG_PRIMARIES_BT709,
                   high ? static_cast<zimg_transfer_characteristics_e>(transfer) : ZIMG_TRANSFER_IEC_61966_2_1};
}

/// What a HEIC or AVIF file says in numbers of its colours, which libvips does not tell; none where that is sRGB.
std::optional<Colours> coloursOf(const vips::VSource& heif) {
    std::size_t size = 0;
    const void* const bytes = vips_source_map(heif.get_source(), &size);
    const Owned<heif_context, heif_context_free> file(heif_context_alloc());
    heif_image_handle* image = nullptr;
    if (bytes == nullptr ||
        heif_context_read_from_memory_without_copy(file.get(), bytes, size, nullptr).code != heif_error_Ok ||
        heif_context_get_primary_image_handle(file.get(), &image).code != heif_error_Ok) {
        return std::nullopt;
    }
    const Owned<const heif_image_handle, heif_image_handle_release> imageOwner(image);
    heif_color_profile_nclx* colours = nullptr;
    if (heif_image_handle_get_nclx_color_profile(image, &colours).code != heif_error_Ok) {
        return std::nullopt;
    }
    const Owned<heif_color_profile_nclx, heif_nclx_color_profile_free> coloursOwner(colours);
    return shownColours(colours->color_primaries, colours->transfer_characteristics);
}

PlanarPicture inPlanes(const VImage& picture, const Colours& colours) {
    zimgxx::zimage_format format =
        screenFormat(static_cast<unsigned>(picture.width()), static_cast<unsigned>(picture.height()), ZIMG_COLOR_RGB);
    format.pixel_type = ZIMG_PIXEL_WORD;
    format.depth = 16;
    format.color_primaries = colours.primaries;
    format.transfer_characteristics = colours.transfer;
    PlanarPicture planes(format);
    for (int y = 0; y < picture.height(); ++y) {
        const auto* sample = reinterpret_cast<const std::uint16_t*>(VIPS_IMAGE_ADDR(picture.get_image(), 0, y));
        for (unsigned x = 0; x < format.width; ++x) {
            for (unsigned part = 0; part < 3; ++part) {
                planes.row<std::uint16_t>(part, static_cast<std::size_t>(y))[x] = *sample++;
            }
        }
    }
    return planes;
}

VImage converted(const VImage& picture, const Colours& colours) {
    const VImage deep =
        picture.format() == VIPS_FORMAT_UCHAR ? (picture * 257).cast(VIPS_FORMAT_USHORT).copy_memory() : picture;
    const PlanarPicture source = inPlanes(deep, colours);
    const auto& [width, height] = std::pair(source.planes().format.width, source.planes().format.height);
    const PlanarPicture shown(screenFormat(width, height, ZIMG_COLOR_RGB));
    convertColours(source.planes(), shown.planes());
    std::vector<VImage> parts;
    for (unsigned part = 0; part < 3; ++part) {
        const int stride = static_cast<int>(shown.planes().stride[part]);
        void* const samples = shown.planes().data[part];
        parts.push_back(VImage::new_from_memory(samples, static_cast<std::size_t>(stride) * height, stride,
                                                static_cast<int>(height), 1, VIPS_FORMAT_UCHAR)
                            .crop(0, 0, static_cast<int>(width), static_cast<int>(height)));
    }
    return VImage::bandjoin(parts)
        .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB))
        .copy_memory();
}

} // namespace

VImage onScreen(const VImage& picture, const vips::VSource* heif) {
    if (picture.get_typeof(VIPS_META_ICC_NAME) != 0) {
        try {
            auto* const options = VImage::option()->set("embedded", true)->set("black_point_compensation", true);
            return picture.icc_transform("srgb", options).copy_memory();
        } catch (const vips::VError&) {
            vips_error_clear(); // a profile that nobody can use says nothing
        }
    } else if (heif != nullptr) {
        const std::optional<Colours> colours = coloursOf(*heif);
        if (colours && picture.bands() == 3) {
            return converted(picture, *colours);
        }
    }
    return picture.colourspace(VIPS_INTERPRETATION_sRGB).copy_memory();
}
