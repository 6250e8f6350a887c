#include "programs/photo/jpegOutline.h"

#include "programs/photo/forwardBytes.h"

#include <algorithm>

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

bool isFrame(int marker) {
    return marker >= kFirstFrame && marker <= kLastFrame && marker != kHuffmanTables && marker != kExtension &&
           marker != kArithmeticCoding;
}

/// Within a scan: an escaped data byte, a restart, or a fill byte. No segment follows.
bool standsAlone(int marker) {
    return marker <= 1 || (marker >= kFirstRestart && marker <= kStart);
}

int nextMarker(ForwardBytes& bytes) {
    int marker = kEscape;
    if (!bytes.skipPast(kEscape)) {
        return -1;
    }
    while (marker == kEscape) {
        marker = bytes.next();
    }
    return marker;
}

} // namespace

JpegOutline outlineJpeg(int input) {
    ForwardBytes bytes(input);
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
