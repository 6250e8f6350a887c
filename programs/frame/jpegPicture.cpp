#include "programs/frame/jpegPicture.h"

#include "programs/frame/frameTurn.h"
#include "programs/frame/screenColours.h"

#include <algorithm>

namespace {

constexpr int kLongestSide = 1080;
constexpr int kBestQuality = FF_QP2LAMBDA;

/// The size with square pixels: of wide ones the width grows, of narrow ones the height. A ratio beyond all use is
/// taken for a mistake.
PictureSize squared(const AVFrame& frame, AVRational pixel) {
    constexpr int kMost = 16;
    PictureSize size = {frame.width, frame.height};
    if (pixel.num > pixel.den && pixel.num / kMost <= pixel.den) {
        size.width = static_cast<int>(av_rescale(size.width, pixel.num, pixel.den));
    } else if (pixel.num > 0 && pixel.num < pixel.den && pixel.den / kMost <= pixel.num) {
        size.height = static_cast<int>(av_rescale(size.height, pixel.den, pixel.num));
    }
    return size;
}

PictureSize shrunk(PictureSize size) {
    const int longer = std::max(size.width, size.height);
    if (longer > kLongestSide) {
        size.width = static_cast<int>(av_rescale(size.width, kLongestSide, longer));
        size.height = static_cast<int>(av_rescale(size.height, kLongestSide, longer));
    }
    if (size.width < 1 || size.height < 1) {
        throw MediaError("the picture is too narrow");
    }
    return size;
}

Libav<AVCodecContext> openEncoder(const AVFrame& frame) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    Libav<AVCodecContext> encoder = owned(avcodec_alloc_context3(codec));
    encoder->width = frame.width;
    encoder->height = frame.height;
    encoder->pix_fmt = static_cast<AVPixelFormat>(frame.format);
    encoder->sample_aspect_ratio = frame.sample_aspect_ratio;
    encoder->color_range = frame.color_range;
    encoder->colorspace = frame.colorspace;
    encoder->time_base = {1, 25};
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = kBestQuality;
    encoder->thread_count = 1;
    checked(avcodec_open2(encoder.get(), codec, nullptr), "cannot open the encoder");
    return encoder;
}

} // namespace

Libav<AVPacket> makeJpeg(const AVFrame& frame, const AVStream& stream, AVRational pixel) {
    const PictureSize size = shrunk(squared(frame, pixel));
    Libav<AVFrame> shown = shownOnScreen(owned(av_frame_clone(&frame)), *stream.codecpar, size);
    const Libav<AVFrame> picture = turnedUpright(std::move(shown), frame, stream);
    picture->quality = kBestQuality;
    picture->pts = 0;
    const Libav<AVCodecContext> encoder = openEncoder(*picture);
    Libav<AVPacket> packet = owned(av_packet_alloc());
    checked(avcodec_send_frame(encoder.get(), picture.get()), "cannot encode the picture");
    checked(avcodec_send_frame(encoder.get(), nullptr), "cannot encode the picture");
    checked(avcodec_receive_packet(encoder.get(), packet.get()), "cannot encode the picture");
    return packet;
}
