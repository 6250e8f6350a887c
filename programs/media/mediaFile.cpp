#include "programs/media/mediaFile.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

namespace {

constexpr int kReadAtOnce = 32 << 10;

int refuseToOpen(AVFormatContext* /*format*/, AVIOContext** /*reader*/, const char* /*url*/, int /*flags*/,
                 AVDictionary** /*options*/) {
    return AVERROR(EACCES);
}

} // namespace

int MediaFile::read(void* input, std::uint8_t* buffer, int size) {
    auto& self = *static_cast<Input*>(input);
    ssize_t count = 0;
    if (stopped_ != 0) {
        return AVERROR_EXIT;
    }
    const std::int64_t wanted = std::max<std::int64_t>(0, std::min<std::int64_t>(size, self.end - self.offset));
    do {
        count = pread(self.descriptor, buffer, static_cast<std::size_t>(wanted), self.offset);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
        return count == 0 ? AVERROR_EOF : AVERROR(errno);
    }
    self.offset += count;
    return static_cast<int>(count);
}

std::int64_t MediaFile::seek(void* input, std::int64_t offset, int whence) {
    auto& self = *static_cast<Input*>(input);
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
        return self.size;
    case SEEK_SET:
        return self.offset = offset;
    case SEEK_CUR:
        return self.offset += offset;
    case SEEK_END:
        return self.offset = self.size + offset;
    default:
        return AVERROR(EINVAL);
    }
}

MediaFile::MediaFile(int descriptor) : input_(new Input{descriptor, lseek(descriptor, 0, SEEK_END), 0, INT64_MAX}) {
    checked(input_->size >= 0 ? 0 : AVERROR(errno), "cannot find the file's end");
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(kReadAtOnce));
    checked(buffer != nullptr ? 0 : AVERROR(ENOMEM), "cannot read the file");
    reader_ = owned(avio_alloc_context(buffer, kReadAtOnce, 0, input_.get(), read, nullptr, seek));
    AVFormatContext* format = owned(avformat_alloc_context()).release();
    format->pb = reader_.get();
    format->io_open = refuseToOpen;
    // A failure frees the context.
    checked(avformat_open_input(&format, nullptr, nullptr, nullptr), "cannot read the container");
    format_.reset(format);
}

bool MediaFile::isBare() const {
    constexpr std::array<std::string_view, 4> kBare = {"h264", "hevc", "m4v", "mpegvideo"};
    return std::find(kBare.begin(), kBare.end(), format_->iformat->name) != kBare.end();
}
