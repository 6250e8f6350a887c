// The codecs that frameDecoder contains, in place of the list inside of libavcodec: decoders of pictures, and the
// encoder of a JPEG. See containerList.cpp for how and why. Sound is not decoded.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
}

#include <cstring>
#include <initializer_list>

extern "C" {

#define VIDEO_DECODERS(of)                                                                                             \
    of(amv) of(asv1) of(asv2) of(ayuv) of(cavs) of(cfhd) of(cinepak) of(dirac) of(dnxhd) of(dvvideo) of(ffv1)          \
        of(ffvhuff) of(flv) of(h261) of(h263) of(h263p) of(h264) of(hap) of(hevc) of(huffyuv) of(indeo3) of(indeo4)    \
            of(indeo5) of(jpeg2000) of(jpegls) of(lagarith) of(libdav1d) of(magicyuv) of(mjpeg) of(mpeg1video)         \
                of(mpeg2video) of(mpeg4) of(msmpeg4v1) of(msmpeg4v2) of(msmpeg4v3) of(msvideo1) of(png) of(prores)     \
                    of(qtrle) of(r210) of(rawvideo) of(rv10) of(rv20) of(rv30) of(rv40) of(snow) of(svq1) of(svq3)     \
                        of(targa) of(theora) of(utvideo) of(v210) of(v410) of(vc1) of(vp3) of(vp5) of(vp6) of(vp6a)    \
                            of(vp6f) of(vp8) of(vp9) of(wmv1) of(wmv2) of(wmv3) of(zmbv)
#define DECLARED(name) extern const AVCodec ff_##name##_decoder;
#define LISTED(name) &ff_##name##_decoder,
VIDEO_DECODERS(DECLARED)
extern const AVCodec ff_mjpeg_encoder;
extern const AVBitStreamFilter ff_vp9_superframe_split_bsf; // the decoder of VP9 asks for it
extern const AVBitStreamFilter ff_extract_extradata_bsf;    // libavformat does, for the headers of bare streams

const AVCodec* av_codec_iterate(void** opaque) {
    static const AVCodec* const kCodecs[] = {VIDEO_DECODERS(LISTED) & ff_mjpeg_encoder, nullptr};
    auto place = reinterpret_cast<uintptr_t>(*opaque); // NOLINT(performance-no-int-to-ptr)
    const AVCodec* codec = kCodecs[place];
    *opaque = reinterpret_cast<void*>(codec == nullptr ? place : place + 1); // NOLINT(performance-no-int-to-ptr)
    return codec;
}
const AVCodec* avcodec_find_decoder(AVCodecID id) {
    void* place = nullptr;
    const AVCodec* codec = av_codec_iterate(&place);
    while (codec != nullptr && (codec->id != id || av_codec_is_decoder(codec) == 0)) {
        codec = av_codec_iterate(&place);
    }
    return codec;
}
const AVCodec* avcodec_find_encoder(AVCodecID id) {
    return id == AV_CODEC_ID_MJPEG ? &ff_mjpeg_encoder : nullptr;
}
const AVBitStreamFilter* av_bsf_get_by_name(const char* name) {
    for (const AVBitStreamFilter* filter : {&ff_vp9_superframe_split_bsf, &ff_extract_extradata_bsf}) {
        if (std::strcmp(name, filter->name) == 0) {
            return filter;
        }
    }
    return nullptr;
}

// Hardware that some of the decoders could use: none is ever offered to them.

extern const void* const ff_h263_vaapi_hwaccel[32] = {};
extern const void* const ff_h264_vaapi_hwaccel[32] = {};
extern const void* const ff_hevc_vaapi_hwaccel[32] = {};
extern const void* const ff_mjpeg_vaapi_hwaccel[32] = {};
extern const void* const ff_mpeg2_vaapi_hwaccel[32] = {};
extern const void* const ff_mpeg4_vaapi_hwaccel[32] = {};
extern const void* const ff_vc1_vaapi_hwaccel[32] = {};
extern const void* const ff_vp8_vaapi_hwaccel[32] = {};
extern const void* const ff_vp9_vaapi_hwaccel[32] = {};
extern const void* const ff_wmv3_vaapi_hwaccel[32] = {};
}
