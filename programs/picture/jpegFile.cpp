#include "programs/picture/jpegFile.h"

#include <cstddef>
#include <optional>

namespace {

enum Marker : unsigned char {
    kNone = 0,     ///< what follows a byte 0xFF of the codes
    kFrame = 0xC0, ///< of baseline
    kHuffmanTable = 0xC4,
    kStart = 0xD8,
    kScan = 0xDA,
    kQuantizationTable = 0xDB,
    kJfif = 0xE0,
    kColourProfile = 0xE2,
    kComment = 0xFE,
};

struct Segment {
    unsigned char marker;
    std::string_view body; ///< behind marker and length
};

std::size_t byteAt(std::string_view bytes, std::size_t place) {
    return static_cast<unsigned char>(bytes[place]);
}

std::size_t numberAt(std::string_view bytes, std::size_t place) {
    return byteAt(bytes, place) << 8U | byteAt(bytes, place + 1);
}

bool isMarker(std::string_view bytes, Marker marker) {
    return bytes.size() >= 2 && bytes[0] == '\xff' && byteAt(bytes, 1) == marker;
}

/// Takes the segment that `bytes` begin with; nothing where none is whole.
std::optional<Segment> takeSegment(std::string_view& bytes) {
    constexpr std::size_t kHead = 4;
    const std::size_t length = bytes.size() < kHead || bytes[0] != '\xff' ? 0 : numberAt(bytes, 2);
    if (length < 2 || length + 2 > bytes.size()) {
        return std::nullopt;
    }
    const Segment segment = {static_cast<unsigned char>(bytes[1]), bytes.substr(kHead, length - 2)};
    bytes.remove_prefix(length + 2);
    return segment;
}

/// How many components a frame has; 0 where it is none of 8 bits in grey or in three colours, or has no size.
std::size_t componentsOf(std::string_view frame) {
    constexpr std::size_t kHead = 6;
    const std::size_t count = frame.size() < kHead ? 0 : byteAt(frame, kHead - 1);
    const bool isFrame = (count == 1 || count == 3) && frame.size() == kHead + 3 * count && frame[0] == 8;
    return isFrame && numberAt(frame, 1) > 0 && numberAt(frame, 3) > 0 ? count : 0;
}

/// Whether the codes of the only scan go on to the end marker, which is the last.
bool isScanToTheEnd(std::string_view codes) {
    std::size_t place = codes.find('\xff');
    while (place != std::string_view::npos && isMarker(codes.substr(place), kNone)) {
        place = codes.find('\xff', place + 2);
    }
    return place != std::string_view::npos && place > 0 && codes.substr(place) == "\xff\xd9";
}

} // namespace

bool isWholeJpeg(std::string_view file) {
    if (!isMarker(file, kStart)) {
        return false;
    }
    std::string_view rest = file.substr(2);
    bool canDequantize = false;
    bool canReadCodes = false;
    std::size_t components = 0;
    while (const std::optional<Segment> segment = takeSegment(rest)) {
        switch (segment->marker) {
        case kJfif:
        case kColourProfile:
        case kComment:
            break;
        case kQuantizationTable:
            canDequantize = true;
            break;
        case kHuffmanTable:
            canReadCodes = true;
            break;
        case kFrame:
            if (components != 0 || (components = componentsOf(segment->body)) == 0) {
                return false;
            }
            break;
        case kScan:
            return canDequantize && canReadCodes && components != 0 && segment->body.size() == 4 + 2 * components &&
                   isScanToTheEnd(rest);
        default:
            return false;
        }
    }
    return false;
}
