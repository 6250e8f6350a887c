#include "programs/colour/colourConversion.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace {

bool isHighRange(const zimgxx::zimage_format& format) {
    return format.transfer_characteristics == ZIMG_TRANSFER_ST2084 ||
           format.transfer_characteristics == ZIMG_TRANSFER_ARIB_B67;
}

void convert(const Planes& from, const Planes& to, zimg_resample_filter_e filter) {
    zimgxx::zfilter_graph_builder_params settings;
    settings.resample_filter = filter;
    settings.nominal_peak_luminance = 203;
    // HLG's curve mixes all colours
    settings.allow_approximate_gamma = from.format.transfer_characteristics == ZIMG_TRANSFER_ARIB_B67 ? 0 : 1;
    zimgxx::zimage_buffer_const source;
    zimgxx::zimage_buffer target;
    for (unsigned part = 0; part < from.data.size(); ++part) {
        source.data(part) = from.data[part];
        source.stride(part) = from.stride[part];
        source.mask(part) = ZIMG_BUFFER_MAX;
        target.data(part) = to.data[part];
        target.stride(part) = to.stride[part];
        target.mask(part) = ZIMG_BUFFER_MAX;
    }
    try {
        const zimgxx::FilterGraph graph = zimgxx::FilterGraph::build(from.format, to.format, &settings);
        const AlignedMemory scratch = alignedMemory(graph.get_tmp_size());
        graph.process(source, target, scratch.get());
    } catch (const zimgxx::zerror& error) {
        throw std::runtime_error(std::string("cannot convert the colours: ") + error.msg);
    }
}

/// Light, paper white being 1, as it is shown on a screen whose brightest is 1. What few films exceed, 2,000 cd/m2, is
/// that, and all that is brighter.
float compressed(float light) {
    constexpr float kKnee = 0.85F;
    constexpr float kBend = 0.02557F; // leaves the straight part without a kink
    return light <= kKnee ? light : std::min(kKnee + kBend * std::log1p((light - kKnee) / kBend), 1.0F);
}

/// Compresses what is too bright for a screen, each pixel's colours by the same factor.
void compressHighlights(const PlanarPicture& light) {
    const auto& [width, height] = std::pair(light.planes().format.width, light.planes().format.height);
    for (unsigned y = 0; y < height; ++y) {
        const std::array parts = {light.row<float>(0, y), light.row<float>(1, y), light.row<float>(2, y)};
        for (unsigned x = 0; x < width; ++x) {
            const float brightest = std::max({parts[0][x], parts[1][x], parts[2][x]});
            const float factor = brightest > 0 ? compressed(brightest) / brightest : 1;
            for (float* const part : parts) {
                part[x] *= factor;
            }
        }
    }
}

/// Light on a screen with the primaries of sRGB.
zimgxx::zimage_format lightFormat(unsigned width, unsigned height) {
    zimgxx::zimage_format format = screenFormat(width, height, ZIMG_COLOR_RGB);
    format.pixel_type = ZIMG_PIXEL_FLOAT;
    format.transfer_characteristics = ZIMG_TRANSFER_LINEAR;
    return format;
}

} // namespace

void convertColours(const Planes& from, const Planes& to, zimg_resample_filter_e filter) {
    if (isHighRange(from.format)) {
        const PlanarPicture light(lightFormat(to.format.width, to.format.height));
        convert(from, light.planes(), filter);
        compressHighlights(light);
        convert(light.planes(), to, filter);
    } else {
        convert(from, to, filter);
    }
}
