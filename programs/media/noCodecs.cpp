// In place of the lists inside of libavcodec, for a program that reads packets but decodes none (see
// containerList.cpp). Parsers stay: they find where packets begin and end.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>

const AVCodec* av_codec_iterate(void**) {
    return nullptr;
}
const AVCodec* avcodec_find_decoder(AVCodecID) {
    return nullptr;
}
const AVCodec* avcodec_find_encoder(AVCodecID) {
    return nullptr;
}
const AVBitStreamFilter* av_bsf_get_by_name(const char*) {
    return nullptr;
}
}
