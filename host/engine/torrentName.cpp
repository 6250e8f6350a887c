#include "host/engine/torrentName.h"

#include <sys/stat.h>

#include <algorithm>

namespace host {
namespace {

constexpr std::string_view kPreviewFolder = "vexodlthumbnail"; // where the library makes it in the task's directory

unsigned byteAt(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

bool continues(std::string_view text, std::size_t at) {
    return (byteAt(text, at) & 0xC0U) == 0x80U;
}

/// The value of a hexadecimal digit as the engine writes it, 16 for any other character.
unsigned hexDigit(char letter) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const std::size_t value = kDigits.find(letter);
    return value == std::string_view::npos ? 16U : static_cast<unsigned>(value);
}

/// The character above U+FFFF that an escape of five digits meant, when at this place stand a character from U+1000 to
/// the end of `lastLead` (the first byte of its three) and a hexadecimal digit; 0 otherwise.
unsigned splitCharacter(std::string_view name, std::size_t at, unsigned lastLead) {
    if (at + 3 >= name.size() || byteAt(name, at) < 0xE1U || byteAt(name, at) > lastLead || !continues(name, at + 1) ||
        !continues(name, at + 2) || hexDigit(name[at + 3]) > 15U) {
        return 0;
    }
    const unsigned four =
        (byteAt(name, at) & 0x0FU) << 12U | (byteAt(name, at + 1) & 0x3FU) << 6U | (byteAt(name, at + 2) & 0x3FU);
    return four << 4U | hexDigit(name[at + 3]);
}

void appendFourBytes(std::string& text, unsigned character) {
    text += static_cast<char>(0xF0U | character >> 18U);
    text += static_cast<char>(0x80U | (character >> 12U & 0x3FU));
    text += static_cast<char>(0x80U | (character >> 6U & 0x3FU));
    text += static_cast<char>(0x80U | (character & 0x3FU));
}

std::string fiveDigitReading(std::string_view name, unsigned lastLead) {
    std::string reading;
    for (std::size_t at = 0; at < name.size();) {
        if (const unsigned character = splitCharacter(name, at, lastLead); character != 0) {
            appendFourBytes(reading, character);
            at += 4;
        } else {
            reading += name[at++];
        }
    }
    return reading;
}

bool exists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

bool isOnDisk(const std::string& directory, std::string_view name) {
    std::string path = directory;
    path.append("/").append(name);
    return exists(path) || exists(path.append(".part"));
}

} // namespace

bool staysBelow(std::string_view name) {
    if (name.find('\0') != std::string_view::npos) {
        return false;
    }
    for (std::size_t begin = 0; begin <= name.size();) {
        const std::size_t end = std::min(name.find('/', begin), name.size());
        const std::string_view component = name.substr(begin, end - begin);
        if (component.empty() || component == "." || component == "..") {
            return false;
        }
        begin = end + 1;
    }
    return true;
}

bool isOfPreviews(std::string_view name) {
    const std::string_view first = name.substr(0, name.find('/'));
    const auto isSameLetter = [](char small, char other) { return small == (other | 0x20); }; // in any locale
    return std::equal(kPreviewFolder.begin(), kPreviewFolder.end(), first.begin(), first.end(), isSameLetter);
}

std::optional<std::string> otherNameOnDisk(const std::string& directory, std::string_view name) {
    const auto mayBegin = [](char byte) { return byte >= '\xE1' && byte <= '\xE3'; };
    if (std::none_of(name.begin(), name.end(), mayBegin)) {
        return std::nullopt;
    }
    // The emoji and most else begin with \u1; ideographs with \u2 and \u3, where the four digits are more often meant.
    const std::string narrow = fiveDigitReading(name, 0xE1U);
    const std::string wide = fiveDigitReading(name, 0xE3U);
    if (wide == name || isOnDisk(directory, name)) {
        return std::nullopt;
    }
    if (narrow != name && isOnDisk(directory, narrow)) {
        return narrow;
    }
    return wide != narrow && isOnDisk(directory, wide) ? std::optional(wide) : std::nullopt;
}

} // namespace host
