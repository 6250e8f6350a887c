#include "programs/colour/planarPicture.h"

#include <new>

namespace {

constexpr std::size_t kAlignment = 64;

std::size_t aligned(std::size_t bytes) {
    return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

std::size_t bytesPerSample(const zimgxx::zimage_format& format) {
    return format.pixel_type == ZIMG_PIXEL_FLOAT ? 4 : format.pixel_type == ZIMG_PIXEL_BYTE ? 1 : 2;
}

} // namespace

AlignedMemory alignedMemory(std::size_t bytes) {
    AlignedMemory memory(std::aligned_alloc(kAlignment, aligned(bytes)));
    if (!memory) {
        throw std::bad_alloc();
    }
    return memory;
}

PlanarPicture::PlanarPicture(const zimgxx::zimage_format& format) {
    const std::size_t count = format.color_family == ZIMG_COLOR_GREY ? 1 : planes_.data.size();
    planes_.format = format;
    for (std::size_t plane = 0; plane < count; ++plane) {
        const std::size_t width = format.width >> (plane > 0 ? format.subsample_w : 0);
        const std::size_t height = format.height >> (plane > 0 ? format.subsample_h : 0);
        const std::size_t stride = aligned(width * bytesPerSample(format));
        memory_[plane] = alignedMemory(stride * height);
        planes_.data[plane] = memory_[plane].get();
        planes_.stride[plane] = static_cast<std::ptrdiff_t>(stride);
    }
}

Planes PlanarPicture::plane(std::size_t number) const {
    Planes one = {planes_.format, {planes_.data[number]}, {planes_.stride[number]}};
    one.format.color_family = ZIMG_COLOR_GREY;
    one.format.matrix_coefficients = ZIMG_MATRIX_BT470_BG; // as screenFormat has it of grey
    return one;
}

zimgxx::zimage_format screenFormat(unsigned width, unsigned height, zimg_color_family_e family) {
    zimgxx::zimage_format format;
    format.width = width;
    format.height = height;
    format.pixel_type = ZIMG_PIXEL_BYTE;
    format.depth = 8;
    format.pixel_range = ZIMG_RANGE_FULL;
    format.color_family = family;
    format.matrix_coefficients = family == ZIMG_COLOR_RGB ? ZIMG_MATRIX_RGB : ZIMG_MATRIX_BT470_BG;
    format.transfer_characteristics = ZIMG_TRANSFER_IEC_61966_2_1;
    format.color_primaries = ZIMG_PRIMARIES_BT709;
    return format;
}
