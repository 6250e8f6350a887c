#pragma once

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

/// A file read forward, through a block of it.
class ForwardBytes {
public:
    explicit ForwardBytes(int file) : file_(file) {}

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

    /// Moves behind the next byte of that value; false when there is none.
    bool skipPast(unsigned char value) {
        while (used_ < filled_ || refill()) {
            const void* found = std::memchr(block_.data() + used_, value, filled_ - used_);
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
