#include "programs/duration/mediaDuration.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>

namespace {

int readInput(void* opaque, uint8_t* buffer, int size) {
    const ssize_t count = read(*static_cast<int*>(opaque), buffer, static_cast<std::size_t>(size));
    if (count == 0) {
        return AVERROR_EOF;
    }
    return count > 0 ? static_cast<int>(count) : AVERROR(errno);
}

int64_t seekInput(void* opaque, int64_t offset, int whence) {
    const int input = *static_cast<int*>(opaque);
    if ((whence & AVSEEK_SIZE) == 0) {
        return lseek(input, offset, whence & ~AVSEEK_FORCE);
    }
    const off_t here = lseek(input, 0, SEEK_CUR);
    const off_t size = lseek(input, 0, SEEK_END);
    return lseek(input, here, SEEK_SET) < 0 ? AVERROR(errno) : size;
}

int refuseToOpen(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
    return AVERROR(EPERM);
}

struct CloseStream {
    void operator()(AVIOContext* stream) const {
        av_freep(&stream->buffer);
        avio_context_free(&stream);
    }
};

struct CloseFormat {
    void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
};

std::unique_ptr<AVIOContext, CloseStream> openStream(int& input) {
    constexpr int kBufferBytes = 32768;
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
    return std::unique_ptr<AVIOContext, CloseStream>(
        avio_alloc_context(buffer, kBufferBytes, 0, &input, &readInput, nullptr, &seekInput));
}

MediaDuration failure(int code) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text = {};
    av_strerror(code, text.data(), text.size());
    return {0, text.data()};
}

} // namespace

MediaDuration measureDuration(int input, bool verbose) {
    av_log_set_level(verbose ? AV_LOG_INFO : AV_LOG_QUIET);
    const auto stream = openStream(input);
    AVFormatContext* opened = avformat_alloc_context();
    if (!stream || opened == nullptr) {
        return failure(AVERROR(ENOMEM));
    }
    opened->pb = stream.get();
    opened->io_open = &refuseToOpen;
    int result = avformat_open_input(&opened, "", nullptr, nullptr); // frees the context when it fails
    if (result < 0) {
        return failure(result);
    }
    const std::unique_ptr<AVFormatContext, CloseFormat> format(opened);
    if (format->duration <= 0) {
        result = avformat_find_stream_info(format.get(), nullptr);
    }
    if (result < 0) {
        return failure(result);
    }
    return {format->duration > 0 ? format->duration : 0, "the container tells no duration"};
}
