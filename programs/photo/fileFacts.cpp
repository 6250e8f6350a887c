#include "programs/photo/fileFacts.h"

#include "programs/photo/exifOrientation.h"

#include <string>

namespace {

std::string_view bytesOf(const vips::VSource& source) {
    std::size_t size = 0;
    const void* const bytes = vips_source_map(source.get_source(), &size);
    return {static_cast<const char*>(bytes), bytes == nullptr ? 0 : size};
}

/// The number in the first four bytes, of which there must be as many.
std::size_t number(std::string_view bytes) {
    std::size_t value = 0;
    for (const char byte : bytes.substr(0, 4)) {
        value = value << 8U | static_cast<unsigned char>(byte);
    }
    return value;
}

/// From the first chunk on.
std::string_view chunksOf(std::string_view png) {
    constexpr std::size_t kSignature = 8;
    return png.substr(std::min(kSignature, png.size()));
}

constexpr std::size_t kAroundChunk = 12; // length and type before the data, a sum behind them

bool isWholeChunk(std::string_view rest) {
    return rest.size() >= kAroundChunk && number(rest) <= rest.size() - kAroundChunk;
}

std::string_view behindChunk(std::string_view rest) {
    return rest.substr(kAroundChunk + number(rest));
}

} // namespace

int orientationInPng(const vips::VSource& source) {
    for (std::string_view rest = chunksOf(bytesOf(source)); isWholeChunk(rest); rest = behindChunk(rest)) {
        if (rest.substr(4, 4) == "eXIf") {
            const std::string exif = std::string("Exif\0\0", 6).append(rest.substr(8, number(rest)));
            return exifOrientation(reinterpret_cast<const unsigned char*>(exif.data()), exif.size());
        }
    }
    return 0;
}

std::string mendedPng(const vips::VSource& source) {
    const std::string_view all = bytesOf(source);
    std::string_view rest = chunksOf(all);
    while (isWholeChunk(rest)) {
        rest = behindChunk(rest);
    }
    std::string png(all);
    if (rest.size() > 8) {
        const std::size_t size = rest.size() - 8;
        for (std::size_t i = 0; i < 4; ++i) {
            png[png.size() - rest.size() + i] = static_cast<char>(size >> (24 - 8 * i));
        }
    }
    return png;
}

std::string_view profileInJpeg2000(const vips::VSource& source) {
    constexpr std::size_t kHead = 8;   // length of it all, and type
    constexpr std::size_t kMethod = 3; // how colours are told, and two bytes that say nothing
    std::string_view rest = bytesOf(source);
    while (rest.size() > kHead + kMethod && number(rest) >= kHead && number(rest) <= rest.size()) {
        const std::string_view type = rest.substr(4, 4);
        if (type == "colr" && rest[kHead] == 2 && number(rest) > kHead + kMethod) {
            return rest.substr(kHead + kMethod, number(rest) - kHead - kMethod);
        }
        rest.remove_prefix(type == "jp2h" ? kHead : number(rest)); // the one that holds others
    }
    return {};
}
