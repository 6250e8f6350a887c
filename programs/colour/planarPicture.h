#pragma once

#include <zimg++.hpp>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <memory>

/// Where the samples of a picture are: a plane each for red, green and blue, or for luma and two colours, or grey
/// alone. Rows begin at multiples of 32 bytes, and can be read to the next one.
struct Planes {
    zimgxx::zimage_format format;
    std::array<void*, 3> data = {};
    std::array<std::ptrdiff_t, 3> stride = {}; ///< in bytes
};

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};

/// Memory that begins where vector instructions can read. Throws std::bad_alloc when there is none.
using AlignedMemory = std::unique_ptr<void, FreeMemory>;
AlignedMemory alignedMemory(std::size_t bytes);

/// A picture of its own memory. Throws std::bad_alloc when there is none.
class PlanarPicture {
public:
    explicit PlanarPicture(const zimgxx::zimage_format& format);

    [[nodiscard]] const Planes& planes() const { return planes_; }

    /// One plane, as that of a grey picture.
    [[nodiscard]] Planes plane(std::size_t number) const;

    template <typename Sample>
    [[nodiscard]] Sample* row(std::size_t plane, std::size_t y) const {
        auto* const first = static_cast<std::byte*>(planes_.data[plane]);
        return reinterpret_cast<Sample*>(first + static_cast<std::ptrdiff_t>(y) * planes_.stride[plane]);
    }

private:
    Planes planes_;
    std::array<AlignedMemory, 3> memory_;
};

/// Full range, the curve and the primaries of sRGB: what a JPEG's readers expect. Matrix and kind are red, green and
/// blue, or BT.601's luma and colours, or grey.
zimgxx::zimage_format screenFormat(unsigned width, unsigned height, zimg_color_family_e family);
