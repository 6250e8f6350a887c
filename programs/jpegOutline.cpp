#include "programs/jpegOutline.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

enum Marker : unsigned char {
    kFirstFrame = 0xC0,
    kHuffmanTables = 0xC4,
    kExtension = 0xC8,
    kArithmeticCoding = 0xCC,
    kLastFrame = 0xCF,
    kFirstRestart = 0xD0,
    kStart = 0xD8,
    kEnd = 0xD9,
    kEscape = 0xFF,
};

/// A file read forward, through a block of it.
class Bytes {
public:
    explicit Bytes(int file) : file_(file) {}

    /// The next byte, -1 at the end.
    int next() {
        if (used_ == filled_ && !refill()) {
            return -1;
        }
        return block_[used_++];
    }

    int nextPair() {
        const int high = next();
        const int low = next();
        return low < 0 ? -1 : high * 256 + low;
    }

    void skip(std::size_t count) {
        const std::size_t here = std::min(count, filled_ - used_);
        used_ += here;
        position_ += static_cast<off_t>(count - here);
    }

    /// Moves behind the next escape byte; false when there is none.
    bool skipPastEscape() {
        while (used_ < filled_ || refill()) {
            const void* found = std::memchr(block_.data() + used_, kEscape, filled_ - used_);
            if (found != nullptr) {
                used_ = static_cast<std::size_t>(static_cast<const unsigned char*>(found) - block_.data()) + 1;
                return true;
            }
            used_ = filled_;
        }
        return false;
    }

private:
    bool refill() {
        const ssize_t count = pread(file_, block_.data(), block_.size(), position_);
        used_ = 0;
        filled_ = count > 0 ? static_cast<std::size_t>(count) : 0;
        position_ += static_cast<off_t>(filled_);
        return filled_ > 0;
    }

    int file_;
    off_t position_ = 0; // of the byte behind the block
    std::size_t used_ = 0;
    std::size_t filled_ = 0;
    std::array<unsigned char, 65536> block_ = {};
};

bool isFrame(int marker) {
    return marker >= kFirstFrame && marker <= kLastFrame && marker != kHuffmanTables && marker != kExtension &&
           marker != kArithmeticCoding;
}

/// Within a scan: an escaped data byte, a restart, or a fill byte. No segment follows.
bool standsAlone(int marker) {
    return marker <= 1 || (marker >= kFirstRestart && marker <= kStart);
}

int nextMarker(Bytes& bytes) {
    int marker = kEscape;
    if (!bytes.skipPastEscape()) {
        return -1;
    }
    while (marker == kEscape) {
        marker = bytes.next();
    }
    return marker;
}

} // namespace

JpegOutline outlineJpeg(int input) {
    Bytes bytes(input);
    JpegOutline outline;
    for (int marker = nextMarker(bytes); marker >= 0; marker = nextMarker(bytes)) {
        if (marker == kEnd) {
            outline.complete = outline.width > 0;
            break;
        }
        if (standsAlone(marker)) {
            continue;
        }
        int rest = bytes.nextPair() - 2;
        if (isFrame(marker)) {
            bytes.skip(1); // bits per sample
            outline.height = static_cast<unsigned>(std::max(bytes.nextPair(), 0));
            outline.width = static_cast<unsigned>(std::max(bytes.nextPair(), 0));
            rest -= 5;
        }
        bytes.skip(static_cast<std::size_t>(std::max(rest, 0)));
    }
    return outline;
}
