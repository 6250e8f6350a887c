#include "programs/frame/combing.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <cstdlib>

namespace {

/// Whether two lines of one field are alike and those of the other field, between them and behind, are not.
template <typename Sample>
bool isTooth(const Sample* sample, std::ptrdiff_t line, int least) {
    const int first = sample[0];
    const int second = sample[line];
    const int third = sample[2 * line];
    const int fourth = sample[3 * line];
    const int within = std::abs(first - third) + std::abs(second - fourth);
    const auto differ = [&](int one, int other) { return std::abs(one - other) > least + within; };
    return differ(first, second) && differ(second, third) && differ(third, fourth);
}

/// How many pixels stand out from their neighbours at the distance `across`, and those in turn from theirs. Long rows
/// of them are lines of the picture itself: nothing moves that far from field to field.
template <typename Sample>
int teeth(const AVFrame& frame, std::ptrdiff_t across, int least) {
    const int longest = frame.width / 12;
    int count = 0;
    for (int y = 0; y + 3 < frame.height; ++y) {
        const auto* sample = reinterpret_cast<const Sample*>(frame.data[0] + std::ptrdiff_t{y} * frame.linesize[0]);
        int row = 0;
        for (int x = 0; x + 3 < frame.width; ++x) {
            row = isTooth(sample + x, across, least) ? row + 1 : 0;
            if (row > 0 && row <= longest) {
                count += row < longest ? 1 : 1 - longest; // a row that gets too long counts for nothing
            }
        }
    }
    return count;
}

/// Fine detail has as many teeth in both directions; combs have them in one.
template <typename Sample>
bool isCombed(const AVFrame& frame, int least) {
    constexpr int kOneIn = 1250; // in a frame of a film, somebody's hand
    const auto line = static_cast<std::ptrdiff_t>(frame.linesize[0] / static_cast<int>(sizeof(Sample)));
    const int down = teeth<Sample>(frame, line, least);
    const int aside = teeth<Sample>(frame, 1, least);
    return 2 * down > 3 * aside + 2 * (frame.width * frame.height / kOneIn);
}

} // namespace

void dropCombedField(AVFrame& frame) {
    constexpr int kLeast = 8; // of 256
    const int depth = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format))->comp[0].depth;
    if (depth > 8 ? isCombed<std::uint16_t>(frame, kLeast << (depth - 8)) : isCombed<std::uint8_t>(frame, kLeast)) {
        for (int& line : frame.linesize) {
            line *= 2;
        }
        frame.height /= 2;
    }
}
