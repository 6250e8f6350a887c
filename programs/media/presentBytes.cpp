#include "programs/media/presentBytes.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace {

constexpr std::int64_t kBlock = 16 << 10; // what is missing is missing in as many bytes
constexpr std::int64_t kLastZeros = 64;   // but for the file's last block, which may be shorter

constexpr std::int64_t kLeading = 3; // zeros with which what follows a hole may begin: the size of a frame
constexpr std::int64_t kProbe = 64;

using Block = std::array<std::uint8_t, kBlock>;

bool isZero(std::uint8_t byte) {
    return byte == 0;
}

/// The first zero of [begin, end) of the buffer, or its end.
std::int64_t findZero(const std::uint8_t* buffer, std::int64_t begin, std::int64_t end) {
    const void* zero = begin < end ? std::memchr(buffer + begin, 0, static_cast<std::size_t>(end - begin)) : nullptr;
    return zero == nullptr ? end : static_cast<const std::uint8_t*>(zero) - buffer;
}

} // namespace

PresentBytes::PresentBytes(int descriptor, Download download)
    : descriptor_(descriptor), download_(download), size_(lseek(descriptor, 0, SEEK_END)) {}

std::int64_t PresentBytes::readRaw(std::uint8_t* buffer, std::int64_t size, std::int64_t place) const {
    ssize_t count = 0;
    do {
        count = pread(descriptor_, buffer, static_cast<std::size_t>(std::max<std::int64_t>(size, 0)), place);
    } while (count < 0 && errno == EINTR);
    return count;
}

/// Whether the kernel has the byte as written. Has written_ or hole_ be the range that it is in.
bool PresentBytes::isWritten(std::int64_t place) {
    if (!written_.holds(place) && !hole_.holds(place)) {
        const std::int64_t data = lseek(descriptor_, place, SEEK_DATA);
        if (data == place) {
            const std::int64_t end = lseek(descriptor_, place, SEEK_HOLE);
            written_ = {place, end < 0 ? size_ : end};
        } else {
            hole_ = {place, data < 0 ? size_ : data};
        }
    }
    return !hole_.holds(place) && written_.holds(place);
}

std::int64_t PresentBytes::read(std::uint8_t* buffer, std::int64_t size, std::int64_t place) {
    if (download_ == Download::finished) {
        return readRaw(buffer, size, place);
    }
    if (place >= size_ || !isWritten(place)) {
        return 0;
    }
    const std::int64_t count = readRaw(buffer, std::min(size, written_.end - place), place);
    for (std::int64_t zero = findZero(buffer, 0, count); zero < count;) {
        const std::int64_t behind = std::find_if_not(buffer + zero, buffer + count, isZero) - buffer;
        const Range zeros = allZeros({place + zero, place + behind}, {place, place + count});
        const bool isLast = zeros.end == size_;
        const std::int64_t end = isLast ? size_ : zeros.end - kLeading;
        if (zeros.end - zeros.begin >= (isLast ? kLastZeros : kBlock) && place + zero < end) {
            hole_ = {zeros.begin, end};
            return zero;
        }
        zero = findZero(buffer, behind, count);
    }
    return count;
}

/// What `zeros`, all that were found in one place of `window`, are a part of: at its ends there may be more of them.
PresentBytes::Range PresentBytes::allZeros(Range zeros, Range window) const {
    Block block;
    if (zeros.begin == window.begin) {
        const std::int64_t begin = std::max<std::int64_t>(zeros.begin - kBlock, 0);
        const std::int64_t count = std::max<std::int64_t>(readRaw(block.data(), zeros.begin - begin, begin), 0);
        const auto last = std::make_reverse_iterator(block.begin() + count);
        zeros.begin -= std::find_if_not(last, block.rend(), isZero) - last;
    }
    if (zeros.end == window.end) {
        const std::int64_t count = std::max<std::int64_t>(readRaw(block.data(), kBlock, zeros.end), 0);
        zeros.end += std::find_if_not(block.begin(), block.begin() + count, isZero) - block.begin();
    }
    return zeros;
}

std::int64_t PresentBytes::next(std::int64_t place) {
    std::array<std::uint8_t, kProbe> probe;
    const std::int64_t begin = place;
    while (place < size_ && (skipped_.holds(place) || read(probe.data(), probe.size(), place) == 0)) {
        place = skipped_.holds(place) ? skipped_.end : hole_.end;
        place = isWritten(place) ? behindZeros(place) : place;
    }
    if (place > begin && !skipped_.holds(begin)) {
        skipped_ = {begin, place};
    }
    return std::min(place, size_);
}

/// Where the zeros from `place` on end, in the same range of the kernel. Looks at the beginning of each block: so
/// a gigabyte takes milliseconds.
std::int64_t PresentBytes::behindZeros(std::int64_t place) const {
    Block block;
    const auto countZeros = [&](std::int64_t at, std::int64_t size) {
        const std::int64_t count = std::max<std::int64_t>(readRaw(block.data(), size, at), 0);
        return std::find_if_not(block.begin(), block.begin() + count, isZero) - block.begin();
    };
    std::int64_t ahead = place;
    while (ahead < written_.end && !skipped_.holds(ahead) && countZeros(ahead, kProbe) == kProbe) {
        ahead += kBlock;
    }
    const std::int64_t last = std::max(place, ahead - kBlock);
    return last + std::max<std::int64_t>(countZeros(last, std::min(kBlock, written_.end - last)) - kLeading, 0);
}
