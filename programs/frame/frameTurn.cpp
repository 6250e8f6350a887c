#include "programs/frame/frameTurn.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

#include <array>
#include <cmath>
#include <cstring>

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

void turnPlane(const Plane& from, const Plane& to, int pixelBytes, Turn turn) {
    const std::ptrdiff_t step = pixelBytes;
    for (int y = 0; y < to.height; ++y) {
        for (int x = 0; x < to.width; ++x) {
            const int column = turn.transpose ? y : x;
            const int row = turn.transpose ? x : y;
            const std::uint8_t* pixel = from.data + (turn.mirrorRows ? from.height - 1 - row : row) * from.line +
                                        (turn.mirrorColumns ? from.width - 1 - column : column) * step;
            std::memcpy(to.data + y * to.line + x * step, pixel, static_cast<std::size_t>(step));
        }
    }
}

Plane planeOf(const AVFrame& frame, const AVPixFmtDescriptor& format, int plane) {
    const bool chroma = (plane == 1 || plane == 2) && (format.flags & AV_PIX_FMT_FLAG_RGB) == 0;
    return {frame.data[plane], frame.linesize[plane],
            chroma ? AV_CEIL_RSHIFT(frame.width, format.log2_chroma_w) : frame.width,
            chroma ? AV_CEIL_RSHIFT(frame.height, format.log2_chroma_h) : frame.height};
}

/// Whether each plane can be turned by itself.
bool isTurnable(const AVPixFmtDescriptor& format) {
    constexpr std::uint64_t kNoPlainPlanes = AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_HWACCEL;
    return (format.flags & kNoPlainPlanes) == 0 && format.log2_chroma_w == format.log2_chroma_h;
}

/// The same picture with as many colour samples in both directions.
Libav<AVFrame> evened(const AVFrame& from) {
    Libav<AVFrame> to = owned(av_frame_alloc());
    checked(av_frame_copy_props(to.get(), &from), "cannot describe the picture");
    to->width = from.width;
    to->height = from.height;
    to->format = AV_PIX_FMT_YUV444P;
    checked(av_frame_get_buffer(to.get(), 0), "no memory for the picture");
    const Libav<SwsContext> scaler =
        owned(sws_getContext(from.width, from.height, static_cast<AVPixelFormat>(from.format), to->width, to->height,
                             AV_PIX_FMT_YUV444P, SWS_BICUBIC, nullptr, nullptr, nullptr));
    checked(sws_scale(scaler.get(), from.data, from.linesize, 0, from.height, to->data, to->linesize),
            "cannot convert the picture");
    return to;
}

Libav<AVFrame> turned(const AVFrame& from, Turn turn) {
    const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(from.format));
    Libav<AVFrame> to = owned(av_frame_alloc());
    checked(av_frame_copy_props(to.get(), &from), "cannot describe the picture");
    to->width = turn.transpose ? from.height : from.width;
    to->height = turn.transpose ? from.width : from.height;
    to->format = from.format;
    if (turn.transpose && from.sample_aspect_ratio.num != 0) {
        to->sample_aspect_ratio = av_inv_q(from.sample_aspect_ratio);
    }
    checked(av_frame_get_buffer(to.get(), 0), "no memory for the picture");
    std::array<int, 4> pixelBytes = {};
    for (int i = 0; i < format.nb_components; ++i) {
        pixelBytes.at(static_cast<std::size_t>(format.comp[i].plane)) = format.comp[i].step;
    }
    for (int plane = 0; plane < 4 && from.data[plane] != nullptr; ++plane) {
        turnPlane(planeOf(from, format, plane), planeOf(*to, format, plane),
                  pixelBytes.at(static_cast<std::size_t>(plane)), turn);
    }
    return to;
}

} // namespace

Libav<AVFrame> turnedUpright(Libav<AVFrame> frame, const AVStream& stream) {
    const Turn turn = turnOf(displayMatrix(*frame, stream));
    if (!turn) {
        return frame;
    }
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
    return turned(isTurnable(*format) ? *frame : *evened(*frame), turn);
}
