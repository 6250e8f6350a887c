#include "programs/media/syncPoints.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace {

constexpr std::string_view kHead = "\x1a\x45\xdf\xa3";
constexpr std::string_view kSegment = "\x18\x53\x80\x67";
constexpr std::string_view kCluster = "\x1f\x43\xb6\x75";

std::int64_t bigEndian(std::string_view bytes) {
    std::int64_t number = 0;
    for (const char byte : bytes) {
        number = (number << 8) | static_cast<std::uint8_t>(byte);
    }
    return number;
}

std::int64_t littleEndian(std::string bytes) {
    std::reverse(bytes.begin(), bytes.end());
    return bigEndian(bytes);
}

/// The number in so many bytes, the highest first.
std::string inBytes(std::int64_t number, int count) {
    std::string bytes;
    while (count-- > 0) {
        bytes += static_cast<char>(number >> (8 * count));
    }
    return bytes;
}

/// How many bytes a number of EBML takes, by its first one.
std::size_t ebmlLength(char first) {
    std::size_t length = 1;
    for (auto bits = static_cast<unsigned char>(first); length < 8 && (bits & 0x80U) == 0; bits <<= 1U) {
        ++length;
    }
    return length;
}

/// Whether it is the name of an AVI chunk of a stream: two digits, two letters.
bool isOfStream(std::string_view name) {
    return std::isdigit(name[0]) != 0 && std::isdigit(name[1]) != 0 && std::islower(name[2]) != 0 &&
           std::islower(name[3]) != 0;
}

} // namespace

SyncPoints::SyncPoints(PresentBytes& bytes) : bytes_(bytes) {
    const std::string head = bytesAt(0, 12);
    if (head.substr(0, 4) == kHead) {
        kind_ = Kind::cluster;
    } else if (head.size() == 12 && head.substr(4, 4) == "ftyp") {
        kind_ = Kind::fragment;
    } else if (head.substr(0, 4) == "RIFF") {
        kind_ = Kind::chunk;
    }
    headEnd_ = findHeadEnd();
}

/// So many bytes, or fewer where a hole or the end is near.
std::string SyncPoints::bytesAt(std::int64_t place, std::int64_t size) {
    std::string bytes(static_cast<std::size_t>(size), '\0');
    const std::int64_t count = bytes_.read(reinterpret_cast<std::uint8_t*>(bytes.data()), size, place);
    bytes.resize(static_cast<std::size_t>(std::max<std::int64_t>(count, 0)));
    return bytes;
}

std::optional<SyncPoints::Part> SyncPoints::partAt(std::int64_t place) {
    constexpr std::int64_t kLongest = 16;
    const std::string head = bytesAt(place, kLongest);
    if (static_cast<std::int64_t>(head.size()) < kLongest) {
        return std::nullopt;
    }
    if (kind_ == Kind::cluster) {
        const std::size_t name = ebmlLength(head[0]);
        const std::size_t size = ebmlLength(head[name]);
        const std::int64_t mask = (std::int64_t{1} << (7 * size)) - 1;
        const std::int64_t content = place + static_cast<std::int64_t>(name + size);
        return Part{head.substr(0, name), content, content + (bigEndian(head.substr(name, size)) & mask)};
    }
    if (kind_ == Kind::fragment) {
        const std::int64_t size = bigEndian(head.substr(0, 4));
        const bool isLong = size == 1;
        const std::int64_t end = place + (isLong ? std::min(bigEndian(head.substr(8)), bytes_.size()) : size);
        return Part{head.substr(4, 4), place + (isLong ? 16 : 8), end};
    }
    const bool isList = head.substr(0, 4) == "RIFF" || head.substr(0, 4) == "LIST";
    const std::int64_t size = littleEndian(head.substr(4, 4));
    return Part{head.substr(isList ? 8 : 0, 4), place + (isList ? 12 : 8), place + 8 + size + size % 2};
}

/// Behind the last part that can be read before the first cluster, fragment or chunk.
std::int64_t SyncPoints::findHeadEnd() {
    constexpr int kMostParts = 10'000;
    bool fragmented = false;
    std::int64_t place = 0;
    for (int count = 0; count < kMostParts && kind_ != Kind::none; ++count) {
        const std::optional<Part> part = partAt(place);
        if (!part || part->end <= place || part->name == kCluster || part->name == "moof") {
            break;
        }
        const std::string& name = part->name;
        fragmented = fragmented || name == "mvex";
        const bool isOuter = name == kSegment || name == "moov" || name == "AVI " || name == "movi";
        place = isOuter ? part->content : part->end;
        if (name == "movi") {
            break;
        }
    }
    if (kind_ == Kind::fragment && !fragmented) {
        kind_ = Kind::none;
    }
    return place;
}

/// How padding begins that takes `size` bytes, this header included.
std::string SyncPoints::paddingHeader(std::int64_t size) const {
    switch (kind_) {
    case Kind::cluster:
        return "\xec\x01" + inBytes(size - 9, 7);
    case Kind::fragment:
        return inBytes(1, 4) + "free" + inBytes(size, 8);
    default:
        const std::string number = inBytes(size - 8, 4);
        return "JUNK" + std::string(number.rbegin(), number.rend());
    }
}

std::int64_t SyncPoints::read(std::uint8_t* buffer, std::int64_t size, std::int64_t place) {
    constexpr std::int64_t kMost = 1 << 30; // libav knows no longer padding
    const std::int64_t length = point_ - headEnd_;
    if (length < static_cast<std::int64_t>(paddingHeader(0).size()) || place >= point_) {
        return bytes_.read(buffer, size, place);
    }
    if (place < headEnd_) {
        return bytes_.read(buffer, std::min(size, headEnd_ - place), place);
    }
    const std::int64_t last = std::max<std::int64_t>(length / kMost - 1, 0) * kMost; // has the rest, too
    const std::int64_t begin = std::min((place - headEnd_) / kMost * kMost, last);
    const std::int64_t end = begin == last ? length : begin + kMost;
    const std::string header = paddingHeader(end - begin);
    const std::int64_t skipped = place - headEnd_ - begin;
    const std::int64_t count = std::min(size, end - begin - skipped);
    std::fill_n(buffer, count, 0xff); // no part of a container begins so, should libav look here
    if (skipped < static_cast<std::int64_t>(header.size())) {
        header.copy(reinterpret_cast<char*>(buffer), static_cast<std::size_t>(count),
                    static_cast<std::size_t>(skipped));
    }
    return count;
}

bool SyncPoints::isThere(std::int64_t begin, std::int64_t end) {
    constexpr std::int64_t kAtOnce = 64 << 10;
    while (begin < end) {
        const std::string bytes = bytesAt(begin, std::min(kAtOnce, end - begin));
        if (bytes.empty()) {
            return false;
        }
        begin += static_cast<std::int64_t>(bytes.size());
    }
    return true;
}

bool SyncPoints::isSyncPoint(std::int64_t place) {
    const std::optional<Part> part = partAt(place);
    if (!part) {
        return false;
    }
    if (kind_ == Kind::cluster) { // begins with its time, or with a checksum or padding before that
        const std::string first = bytesAt(part->content, 1);
        return part->name == kCluster && (first == "\xe7" || first == "\xbf" || first == "\xec");
    }
    if (kind_ == Kind::fragment) { // libav wants it whole
        constexpr std::int64_t kLargest = 16 << 20;
        return bytesAt(part->content, 8) == inBytes(16, 4) + "mfhd" && part->end - place <= kLargest &&
               isThere(place, part->end);
    }
    if (!isOfStream(part->name) || part->name[2] != 'd' || place == headEnd_) {
        return place == headEnd_;
    }
    const std::optional<Part> next = partAt(part->end);
    return next && (isOfStream(next->name) || next->name == "JUNK" || next->name == "idx1");
}

std::optional<std::int64_t> SyncPoints::find(std::int64_t place) {
    constexpr std::int64_t kFarthest = 64 << 20;
    constexpr std::int64_t kAtOnce = 64 << 10;
    const std::string_view mark = kind_ == Kind::cluster ? kCluster : kind_ == Kind::fragment ? "moof" : "d";
    const std::int64_t offset = kind_ == Kind::cluster ? 0 : kind_ == Kind::fragment ? 4 : 2;
    const std::int64_t first = place;
    std::int64_t seen = 0;
    while (kind_ != Kind::none && seen < kFarthest && (place = bytes_.next(place)) < bytes_.size()) {
        const std::string bytes = bytesAt(place, kAtOnce);
        for (std::size_t at = bytes.find(mark); at != std::string::npos; at = bytes.find(mark, at + 1)) {
            const std::int64_t begin = place + static_cast<std::int64_t>(at) - offset;
            if (begin >= first && isSyncPoint(begin)) {
                return begin;
            }
        }
        const auto count = static_cast<std::int64_t>(bytes.size());
        const auto overlap = static_cast<std::int64_t>(mark.size()) - 1; // a mark may lie across two blocks
        place += std::max<std::int64_t>(count - overlap, 1);
        seen += count;
    }
    return std::nullopt;
}
