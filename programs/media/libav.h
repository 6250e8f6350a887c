#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <array>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

// What the programs share of the libav libraries: their handles as owners, their errors as exceptions.

/// Why a media file cannot be read or shown, in words for a log.
struct MediaError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct LibavDeleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
    void operator()(AVIOContext* reader) const {
        av_freep(&reader->buffer);
        avio_context_free(&reader);
    }
    void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

template <typename Handle>
using Libav = std::unique_ptr<Handle, LibavDeleter>;

/// Passes on what a libav call answered; a negative answer is thrown as "WHAT: the library's text".
inline int checked(int answer, const char* what) {
    if (answer < 0) {
        std::array<char, AV_ERROR_MAX_STRING_SIZE> text = {};
        av_strerror(answer, text.data(), text.size());
        throw MediaError(std::string(what) + ": " + text.data());
    }
    return answer;
}

/// Takes a new handle; a null one means that memory ran out.
template <typename Handle>
Libav<Handle> owned(Handle* handle) {
    if (handle == nullptr) {
        throw std::bad_alloc();
    }
    return Libav<Handle>(handle);
}
