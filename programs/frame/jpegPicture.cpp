#include "programs/frame/jpegPicture.h"

#include "programs/frame/frameTurn.h"

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <array>

namespace {

constexpr int kLongestSide = 1080;
constexpr int kBestQuality = FF_QP2LAMBDA;

/// The encoder's formats, the full-range ones: another range would look pale in viewers.
constexpr std::array kPixelFormats = {AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUVJ422P, AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_NONE};

struct Size {
    int width;
    int height;
};

Size shrunk(int width, int height) {
    Size size = {width, height};
    if (width > height) {
        size.width = std::min(kLongestSide, width);
        size.height = static_cast<int>(av_rescale(size.width, height, width));
    } else {
        size.height = std::min(kLongestSide, height);
        size.width = static_cast<int>(av_rescale(size.height, width, height));
    }
    if (size.width < 1 || size.height < 1) {
        throw MediaError("the picture is too narrow");
    }
    return size;
}

AVPixelFormat nearestFormat(AVPixelFormat source) {
    const bool hasAlpha = av_pix_fmt_desc_get(source)->nb_components % 2 == 0;
    return avcodec_find_best_pix_fmt_of_list(kPixelFormats.data(), source, hasAlpha ? 1 : 0, nullptr);
}

/// Where a chroma line lies between the lines of the picture, for 4:2:0 that does not say: as in MPEG-2.
int chromaLine(AVPixelFormat format) {
    return format == AV_PIX_FMT_YUV420P ? 128 : -513;
}

Libav<SwsContext> openScaler(const AVFrame& from, const AVFrame& to) {
    Libav<SwsContext> scaler = owned(sws_alloc_context());
    const auto set = [&](const char* name, int value) { av_opt_set_int(scaler.get(), name, value, 0); };
    set("sws_flags", SWS_BICUBIC);
    set("srcw", from.width);
    set("srch", from.height);
    set("src_format", from.format);
    set("dstw", to.width);
    set("dsth", to.height);
    set("dst_format", to.format);
    set("src_h_chr_pos", -513);
    set("src_v_chr_pos", chromaLine(static_cast<AVPixelFormat>(from.format)));
    set("dst_h_chr_pos", -513);
    set("dst_v_chr_pos", chromaLine(static_cast<AVPixelFormat>(to.format)));
    checked(sws_init_context(scaler.get(), nullptr, nullptr), "cannot set up the scaler");
    return scaler;
}

/// The coefficients between colours and RGB; those of ITU-R BT.601 for a frame that has none.
const int* coefficients(AVColorSpace space) {
    return sws_getCoefficients(space == AVCOL_SPC_RGB ? AVCOL_SPC_BT470BG : space);
}

/// Has the scaler read the colours and the range of values as the frame has them.
void setColours(SwsContext* scaler, AVFrame& from, AVFrame& to) {
    int* inverse = nullptr;
    int* table = nullptr;
    int fullIn = 0;
    int fullOut = 0;
    int brightness = 0;
    int contrast = 0;
    int saturation = 0;
    sws_getColorspaceDetails(scaler, &inverse, &fullIn, &table, &fullOut, &brightness, &contrast, &saturation);
    const int* colours = coefficients(from.colorspace);
    if (from.color_range != AVCOL_RANGE_UNSPECIFIED) {
        fullIn = from.color_range == AVCOL_RANGE_JPEG ? 1 : 0;
    }
    sws_setColorspaceDetails(scaler, colours, fullIn, colours, fullOut, brightness, contrast, saturation);
    to.color_range = fullOut != 0 ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
}

Libav<AVFrame> scaled(Libav<AVFrame> from) {
    const Size size = shrunk(from->width, from->height);
    const AVPixelFormat format = nearestFormat(static_cast<AVPixelFormat>(from->format));
    if (size.width == from->width && size.height == from->height && format == from->format) {
        return from;
    }
    Libav<AVFrame> to = owned(av_frame_alloc());
    checked(av_frame_copy_props(to.get(), from.get()), "cannot describe the picture");
    to->width = size.width;
    to->height = size.height;
    to->format = format;
    to->sample_aspect_ratio =
        av_mul_q({size.height * from->width, size.width * from->height}, from->sample_aspect_ratio);
    checked(av_frame_get_buffer(to.get(), 0), "no memory for the picture");
    const Libav<SwsContext> scaler = openScaler(*from, *to);
    setColours(scaler.get(), *from, *to);
    checked(sws_scale(scaler.get(), from->data, from->linesize, 0, from->height, to->data, to->linesize),
            "cannot scale the picture");
    return to;
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

Libav<AVPacket> makeJpeg(Libav<AVFrame> frame, const AVStream& stream) {
    if (stream.sample_aspect_ratio.num != 0) {
        frame->sample_aspect_ratio = stream.sample_aspect_ratio;
    }
    Libav<AVFrame> picture = scaled(turnedUpright(std::move(frame), stream));
    picture->pict_type = AV_PICTURE_TYPE_NONE;
    picture->quality = kBestQuality;
    picture->pts = 0;
    const Libav<AVCodecContext> encoder = openEncoder(*picture);
    Libav<AVPacket> packet = owned(av_packet_alloc());
    checked(avcodec_send_frame(encoder.get(), picture.get()), "cannot encode the picture");
    checked(avcodec_send_frame(encoder.get(), nullptr), "cannot encode the picture");
    checked(avcodec_receive_packet(encoder.get(), packet.get()), "cannot encode the picture");
    return packet;
}
