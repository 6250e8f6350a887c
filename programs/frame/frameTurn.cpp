#include "programs/frame/frameTurn.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

#include <cmath>

namespace {

/// How the pixels move: a picture mirrored in both directions is one turned by half.
struct Turn {
    bool transpose = false;
    bool mirrorColumns = false; ///< of the source
    bool mirrorRows = false;    ///< of the source
    explicit operator bool() const { return transpose || mirrorColumns || mirrorRows; }
};

const std::int32_t* displayMatrix(const AVFrame& frame, const AVStream& stream) {
    const AVFrameSideData* ofFrame = av_frame_get_side_data(&frame, AV_FRAME_DATA_DISPLAYMATRIX);
    const std::uint8_t* bytes =
        ofFrame != nullptr ? ofFrame->data : av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
    return reinterpret_cast<const std::int32_t*>(bytes);
}

/// Clockwise, in [0, 360).
double angleOf(const std::int32_t* matrix) {
    const double angle = -std::round(av_display_rotation_get(matrix));
    return angle - 360 * std::floor(angle / 360 + 0.9 / 360);
}

Turn turnOf(const std::int32_t* matrix) {
    if (matrix == nullptr) {
        return {};
    }
    const auto is = [angle = angleOf(matrix)](double quarter) { return std::fabs(angle - quarter) < 1.0; };
    if (is(90)) {
        return {true, false, matrix[3] <= 0};
    }
    if (is(180)) {
        return {false, matrix[0] < 0, matrix[4] < 0};
    }
    if (is(270)) {
        return {true, true, matrix[3] < 0};
    }
    return {false, false, is(0) && matrix[4] < 0};
}

struct Plane {
    std::uint8_t* data;
    std::ptrdiff_t line;
    int width;
    int height;
};

Plane planeOf(const AVFrame& picture, int plane) {
    const int shift = plane == 0 ? 0 : av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format))->log2_chroma_w;
    return {picture.data[plane], picture.linesize[plane], picture.width >> shift, picture.height >> shift};
}

void turnPlane(const Plane& from, const Plane& to, Turn turn) {
    for (int y = 0; y < to.height; ++y) {
        for (int x = 0; x < to.width; ++x) {
            const int column = turn.transpose ? y : x;
            const int row = turn.transpose ? x : y;
            to.data[y * to.line + x] = from.data[(turn.mirrorRows ? from.height - 1 - row : row) * from.line +
                                                 (turn.mirrorColumns ? from.width - 1 - column : column)];
        }
    }
}

} // namespace

Libav<AVFrame> turnedUpright(Libav<AVFrame> picture, const AVFrame& frame, const AVStream& stream) {
    const Turn turn = turnOf(displayMatrix(frame, stream));
    if (!turn) {
        return picture;
    }
    Libav<AVFrame> to = owned(av_frame_alloc());
    checked(av_frame_copy_props(to.get(), picture.get()), "cannot describe the picture");
    to->width = turn.transpose ? picture->height : picture->width;
    to->height = turn.transpose ? picture->width : picture->height;
    to->format = picture->format;
    checked(av_frame_get_buffer(to.get(), 0), "no memory for the picture");
    for (int plane = 0; plane < 3; ++plane) {
        turnPlane(planeOf(*picture, plane), planeOf(*to, plane), turn);
    }
    return to;
}
