#include "programs/frame/screenColours.h"

#include "programs/colour/colourConversion.h"
#include "programs/frame/combing.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cstring>

namespace {

const AVPixFmtDescriptor& descriptorOf(const AVFrame& frame) {
    return *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
}

Libav<AVFrame> emptyFrame(PictureSize size, AVPixelFormat format) {
    Libav<AVFrame> frame = owned(av_frame_alloc());
    frame->width = size.width;
    frame->height = size.height;
    frame->format = format;
    checked(av_frame_get_buffer(frame.get(), 0), "no memory for the picture");
    return frame;
}

// Pixel formats ----------------------------------------------------------------------------------------------------

/// Whether each sample stands in the plane of its kind, as a number of the machine.
bool isPlanar(const AVPixFmtDescriptor& format) {
    constexpr std::uint64_t kOther = AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_BE |
                                     AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_BAYER;
    return (format.flags & kOther) == 0 && std::all_of(format.comp, format.comp + format.nb_components, [](auto& part) {
               return part.depth >= 8 && part.depth <= 16 && part.step == (part.depth + 7) / 8 && part.shift == 0;
           });
}

/// Whether the samples are red, green and blue, or become so in planes.
bool isRgb(const AVPixFmtDescriptor& format) {
    constexpr std::uint64_t kRgb = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BAYER;
    return (format.flags & kRgb) != 0 || std::strncmp(format.name, "xyz", 3) == 0;
}

AVPixelFormat planarFormat(const AVPixFmtDescriptor& format) {
    const bool deep = format.comp[0].depth > 8;
    if (isRgb(format)) {
        return deep ? AV_PIX_FMT_GBRP16 : AV_PIX_FMT_GBRP;
    }
    if (format.nb_components <= 2) {
        return deep ? AV_PIX_FMT_GRAY16 : AV_PIX_FMT_GRAY8;
    }
    return deep ? AV_PIX_FMT_YUV444P16 : AV_PIX_FMT_YUV444P;
}

bool isAligned(const AVFrame& frame) {
    constexpr std::uintptr_t kAlignment = 32;
    for (int plane = 0; plane < 4 && frame.data[plane] != nullptr; ++plane) {
        if (reinterpret_cast<std::uintptr_t>(frame.data[plane]) % kAlignment != 0 ||
            frame.linesize[plane] % static_cast<int>(kAlignment) != 0) {
            return false;
        }
    }
    return true;
}

/// The same pixels in planes, and those where vector instructions can read them.
Libav<AVFrame> inPlanes(Libav<AVFrame> frame) {
    const AVPixFmtDescriptor& format = descriptorOf(*frame);
    if (isPlanar(format) && isAligned(*frame)) {
        return frame;
    }
    const PictureSize size = {frame->width, frame->height};
    const auto source = static_cast<AVPixelFormat>(frame->format);
    Libav<AVFrame> planes = emptyFrame(size, isPlanar(format) ? source : planarFormat(format));
    checked(av_frame_copy_props(planes.get(), frame.get()), "cannot describe the picture");
    if (isPlanar(format)) {
        checked(av_frame_copy(planes.get(), frame.get()), "cannot copy the picture");
        return planes;
    }
    const Libav<SwsContext> converter(sws_getContext(size.width, size.height, source, size.width, size.height,
                                                     static_cast<AVPixelFormat>(planes->format),
                                                     SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    checked(converter ? 0 : AVERROR(ENOSYS), "cannot convert the picture");
    checked(sws_scale(converter.get(), frame->data, frame->linesize, 0, size.height, planes->data, planes->linesize),
            "cannot convert the picture");
    return planes;
}

// Colours ----------------------------------------------------------------------------------------------------------

bool isHighRange(const AVFrame& frame) {
    return frame.color_trc == AVCOL_TRC_SMPTE2084 || frame.color_trc == AVCOL_TRC_ARIB_STD_B67;
}

bool isMatrix(AVColorSpace space) {
    return space == AVCOL_SPC_BT709 || (space >= AVCOL_SPC_FCC && space <= AVCOL_SPC_BT2020_CL) ||
           space == AVCOL_SPC_ICTCP;
}

/// Of a frame that does not say. By the size players guess whether a film is of today or of the age of discs.
AVColorSpace usualMatrix(const AVFrame& frame) {
    constexpr int kHighDefinition = 720;
    constexpr int kHighDefinitionWidth = 1280;
    if (isHighRange(frame)) {
        return AVCOL_SPC_BT2020_NCL;
    }
    const bool high = std::min(frame.width, frame.height) >= kHighDefinition || frame.width >= kHighDefinitionWidth;
    return high ? AVCOL_SPC_BT709 : AVCOL_SPC_BT470BG;
}

/// The primaries of the older standards differ little from sRGB's, and players show them as these.
AVColorPrimaries shownPrimaries(const AVFrame& frame) {
    switch (frame.color_primaries) {
    case AVCOL_PRI_BT2020:
    case AVCOL_PRI_SMPTE431:
    case AVCOL_PRI_SMPTE432:
        return frame.color_primaries;
    case AVCOL_PRI_UNSPECIFIED:
        return frame.colorspace == AVCOL_SPC_BT2020_NCL || frame.colorspace == AVCOL_SPC_BT2020_CL || isHighRange(frame)
                   ? AVCOL_PRI_BT2020
                   : AVCOL_PRI_BT709;
    default:
        return AVCOL_PRI_BT709;
    }
}

/// Has the frame say of its colours what players assume where it says nothing, or nothing that they heed.
void settleColours(AVFrame& frame, AVCodecID codec) {
    const AVPixFmtDescriptor& pixels = descriptorOf(frame);
    const bool video = codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC;
    const bool grey = pixels.nb_components <= 2;
    if ((isRgb(pixels) || (grey && !video)) && frame.color_range == AVCOL_RANGE_UNSPECIFIED) {
        frame.color_range = AVCOL_RANGE_JPEG;
    }
    frame.colorspace = isMatrix(frame.colorspace) ? frame.colorspace : usualMatrix(frame);
    frame.color_primaries = shownPrimaries(frame);
    frame.color_trc = isHighRange(frame) ? frame.color_trc : AVCOL_TRC_IEC61966_2_1;
}

/// The numbers of matrices, primaries and transfers are those of ITU-T H.273 for both libraries.
zimgxx::zimage_format formatOf(const AVFrame& frame) {
    const AVPixFmtDescriptor& pixels = descriptorOf(frame);
    const bool rgb = isRgb(pixels);
    const auto even = [](int side, int shift) { return static_cast<unsigned>(side) >> shift << shift; };
    zimgxx::zimage_format format;
    format.width = even(frame.width, pixels.log2_chroma_w);
    format.height = even(frame.height, pixels.log2_chroma_h);
    format.subsample_w = pixels.log2_chroma_w;
    format.subsample_h = pixels.log2_chroma_h;
    format.depth = static_cast<unsigned>(pixels.comp[0].depth);
    format.pixel_type = format.depth > 8 ? ZIMG_PIXEL_WORD : ZIMG_PIXEL_BYTE;
    format.pixel_range = frame.color_range == AVCOL_RANGE_JPEG ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
    format.color_family = rgb ? ZIMG_COLOR_RGB : pixels.nb_components <= 2 ? ZIMG_COLOR_GREY : ZIMG_COLOR_YUV;
    format.matrix_coefficients = rgb ? ZIMG_MATRIX_RGB : static_cast<zimg_matrix_coefficients_e>(frame.colorspace);
    format.color_primaries = static_cast<zimg_color_primaries_e>(frame.color_primaries);
    format.transfer_characteristics = static_cast<zimg_transfer_characteristics_e>(frame.color_trc);
    if (frame.chroma_location != AVCHROMA_LOC_UNSPECIFIED) {
        format.chroma_location = static_cast<zimg_chroma_location_e>(frame.chroma_location - AVCHROMA_LOC_LEFT);
    }
    return format;
}

/// The planes in the order of libav's descriptor, which has red first.
Planes planesOf(const AVFrame& frame) {
    Planes planes = {formatOf(frame), {}, {}};
    for (std::size_t part = 0; part < planes.data.size(); ++part) {
        const int plane = descriptorOf(frame).comp[part].plane;
        planes.data[part] = frame.data[plane];
        planes.stride[part] = frame.linesize[plane];
    }
    return planes;
}

// The picture ------------------------------------------------------------------------------------------------------

AVPixelFormat jpegFormat(const AVPixFmtDescriptor& source, PictureSize size) {
    const bool odd = size.width % 2 != 0 || size.height % 2 != 0;
    return odd || source.log2_chroma_w == 0 ? AV_PIX_FMT_YUVJ444P : AV_PIX_FMT_YUVJ420P;
}

/// The colour samples keep their places, which no reader's eye can tell from those of a JPEG.
void describeJpeg(AVFrame& picture, const AVFrame& source) {
    picture.chroma_location = source.chroma_location;
    picture.color_range = AVCOL_RANGE_JPEG;
    picture.colorspace = AVCOL_SPC_BT470BG;
    picture.color_primaries = AVCOL_PRI_BT709;
    picture.color_trc = AVCOL_TRC_IEC61966_2_1;
    picture.sample_aspect_ratio = {1, 1};
}

} // namespace

Libav<AVFrame> shownOnScreen(Libav<AVFrame> frame, const AVCodecParameters& codec, PictureSize size) {
    settleColours(*frame, codec.codec_id);
    const Libav<AVFrame> source = inPlanes(std::move(frame));
    if (source->interlaced_frame != 0 || codec.field_order > AV_FIELD_PROGRESSIVE) {
        dropCombedField(*source);
    }
    Libav<AVFrame> picture = emptyFrame(size, jpegFormat(descriptorOf(*source), size));
    describeJpeg(*picture, *source);
    convertColours(planesOf(*source), planesOf(*picture));
    return picture;
}
