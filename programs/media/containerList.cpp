// The container formats that a program which reads strangers' media knows, in place of the lists inside of libavformat.
//
// libavformat and libavcodec come as static archives too. Each keeps what it can do in a few list objects, and the
// linker takes an object of an archive only for symbols that nobody else defines. So a program that defines the symbols
// of the list objects itself contains the listed formats and nothing else: no playlist, no protocol, no network, no
// hardware. A text that names other files is then just not a media file. And the program starts in a few milliseconds,
// where the shared libraries bring 130 others with them.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/mem.h>

extern const AVInputFormat ff_asf_demuxer, ff_avi_demuxer, ff_dv_demuxer, ff_flv_demuxer, ff_h264_demuxer,
    ff_hevc_demuxer, ff_ivf_demuxer, ff_m4v_demuxer, ff_matroska_demuxer, ff_mov_demuxer, ff_mpegps_demuxer,
    ff_mpegts_demuxer, ff_mpegvideo_demuxer, ff_mxf_demuxer, ff_nut_demuxer, ff_ogg_demuxer, ff_rm_demuxer,
    ff_wtv_demuxer, ff_yuv4mpegpipe_demuxer;

// The lists of libavformat. A place in a list is kept as a number behind the opaque pointer.

const AVInputFormat* av_demuxer_iterate(void** opaque) {
    static const AVInputFormat* const kFormats[] = {
        &ff_asf_demuxer,    &ff_avi_demuxer,    &ff_dv_demuxer,        &ff_flv_demuxer,          &ff_h264_demuxer,
        &ff_hevc_demuxer,   &ff_ivf_demuxer,    &ff_m4v_demuxer,       &ff_matroska_demuxer,     &ff_mov_demuxer,
        &ff_mpegps_demuxer, &ff_mpegts_demuxer, &ff_mpegvideo_demuxer, &ff_mxf_demuxer,          &ff_nut_demuxer,
        &ff_ogg_demuxer,    &ff_rm_demuxer,     &ff_wtv_demuxer,       &ff_yuv4mpegpipe_demuxer, nullptr};
    auto place = reinterpret_cast<uintptr_t>(*opaque); // NOLINT(performance-no-int-to-ptr)
    const AVInputFormat* format = kFormats[place];
    *opaque = reinterpret_cast<void*>(format == nullptr ? place : place + 1); // NOLINT(performance-no-int-to-ptr)
    return format;
}
const AVOutputFormat* av_muxer_iterate(void**) {
    return nullptr;
}
void avpriv_register_devices(const AVOutputFormat* const*, const AVInputFormat* const*) {}

// The list of protocols, an array that its reader frees, and the transport that the network code starts.

const void* const* ffurl_get_protocols(const char*, const char*) {
    return static_cast<const void* const*>(av_mallocz(sizeof(void*)));
}
const AVClass* ff_urlcontext_child_class_iterate(void**) {
    return nullptr;
}
const char* avio_enum_protocols(void**, int) {
    return nullptr;
}
const AVClass* avio_protocol_get_class(const char*) {
    return nullptr;
}
int ff_gnutls_init() {
    return 0;
}
void ff_gnutls_deinit() {}

// Of libavcodec what no program here looks for: codecs and bit stream filters by name or one after the other. Those
// that a program has stand with it (noCodecs.cpp, videoCodecs.cpp).

const AVCodec* avcodec_find_decoder_by_name(const char*) {
    return nullptr;
}
const AVCodec* avcodec_find_encoder_by_name(const char*) {
    return nullptr;
}
const AVBitStreamFilter* av_bsf_iterate(void**) {
    return nullptr;
}
const AVClass* ff_bsf_child_class_iterate(void**) {
    return nullptr;
}

// The kinds of hardware in libavutil: all of them the kind 0, "none".

extern const void* const ff_hwcontext_type_cuda[32] = {};
extern const void* const ff_hwcontext_type_drm[32] = {};
extern const void* const ff_hwcontext_type_opencl[32] = {};
extern const void* const ff_hwcontext_type_qsv[32] = {};
extern const void* const ff_hwcontext_type_vaapi[32] = {};
extern const void* const ff_hwcontext_type_vdpau[32] = {};
extern const void* const ff_hwcontext_type_vulkan[32] = {};
}
