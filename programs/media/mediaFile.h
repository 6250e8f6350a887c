#pragma once

#include "programs/media/libav.h"

#include <csignal>
#include <cstdint>
#include <memory>

/// The container of one media file, read through a descriptor only: whatever its bytes name, nothing else is ever
/// opened.
class MediaFile {
public:
    /// Reads the head of the file open as `descriptor`, which the caller keeps open. Its file offset is not used, but
    /// moved. Throws MediaError where the file is no container that is known here.
    explicit MediaFile(int descriptor);

    /// libav's view of it.
    [[nodiscard]] AVFormatContext& format() const { return *format_; }

    /// Whether it is a stream without a container, which has no times.
    [[nodiscard]] bool isBare() const;

    [[nodiscard]] int descriptor() const { return input_->descriptor; }
    [[nodiscard]] std::int64_t sizeInBytes() const { return input_->size; }

    /// From now on no file gives a byte more: libav then ends whatever it is at. Safe in a signal handler.
    static void stopReading() { stopped_ = 1; }
    static bool isStopped() { return stopped_ != 0; }

    /// Has libav take `end` for the end of what it can read.
    void endAt(std::int64_t end) { input_->end = end; }

    /// The byte that libav takes next.
    [[nodiscard]] std::int64_t position() const { return avio_tell(reader_.get()); }

private:
    /// What libav reads: it keeps its address.
    struct Input {
        int descriptor;
        std::int64_t size;
        std::int64_t offset; ///< of the next byte
        std::int64_t end;    ///< none is read from here on
    };
    static inline volatile std::sig_atomic_t stopped_ = 0;
    static int read(void* input, std::uint8_t* buffer, int size);
    static std::int64_t seek(void* input, std::int64_t offset, int whence);

    std::unique_ptr<Input> input_;
    Libav<AVIOContext> reader_; // outlives what reads through it
    Libav<AVFormatContext> format_;
};
