#pragma once

#include <cstdint>

/// Whether a file may lack bytes that a torrent engine has not downloaded yet.
enum class Download : std::uint8_t { finished, unfinished };

/// The bytes of a file that are there.
///
/// A torrent engine fills files in blocks of 16 KiB and more. What it has not written yet reads as zeros, and is told
/// in two ways: of a sparse or preallocated file the kernel knows the ranges that were never written; in a file filled
/// with zeros, and in preallocated ranges that somebody has read, only as many zeros tell.
class PresentBytes {
public:
    /// Of the file open as `descriptor`, which the caller keeps open. Its file offset is moved.
    PresentBytes(int descriptor, Download download);

    /// The size in bytes; negative with errno set where the file has none.
    [[nodiscard]] std::int64_t size() const { return size_; }

    /// Reads as many bytes of [place, place + size) as are there without a hole.
    ///
    /// @return how many; 0 in a hole and at the end; -1 with errno set.
    std::int64_t read(std::uint8_t* buffer, std::int64_t size, std::int64_t place);

    /// The first byte at or behind `place` that is there; size() where none is.
    std::int64_t next(std::int64_t place);

private:
    struct Range {
        std::int64_t begin = 0;
        std::int64_t end = 0;

        [[nodiscard]] bool holds(std::int64_t place) const { return begin <= place && place < end; }
    };

    std::int64_t readRaw(std::uint8_t* buffer, std::int64_t size, std::int64_t place) const;
    bool isWritten(std::int64_t place);
    [[nodiscard]] Range allZeros(Range zeros, Range window) const;
    [[nodiscard]] std::int64_t behindZeros(std::int64_t place) const;

    int descriptor_;
    Download download_;
    std::int64_t size_;
    Range written_; ///< the last range of the kernel that was met
    Range hole_;    ///< the last hole, as far as it was looked at
    Range skipped_; ///< the last one over which next() went
};
