#include "util/printableText.h"

#include <array>

namespace {

/// What a text begins with; 0 bytes where that is no well-formed UTF-8.
struct Character {
    char32_t code = 0;
    std::size_t bytes = 0;
};

std::size_t announcedBytes(unsigned char lead) {
    return lead < 0x80 ? 1 : lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
}

/// Neither longer than need be, nor half of a pair, nor beyond the last character.
bool isWellFormed(const Character& character) {
    constexpr std::array<char32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = character.code >= 0xD800 && character.code <= 0xDFFF;
    return character.code >= kLeast.at(character.bytes) && character.code <= 0x10FFFF && !isSurrogate;
}

/// @param text  not empty.
Character firstCharacter(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t bytes = announcedBytes(lead);
    if (bytes == 0 || bytes > text.size()) {
        return {};
    }
    Character character{bytes == 1 ? lead : lead & (0x7FU >> bytes), bytes};
    for (std::size_t i = 1; i < bytes; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0U) != 0x80) {
            return {};
        }
        character.code = character.code << 6U | (byte & 0x3FU);
    }
    return isWellFormed(character) ? character : Character();
}

bool isPlain(char32_t code) {
    const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool isDirection = code == 0x61C || code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
                             (code >= 0x2066 && code <= 0x2069);
    return !isControl && !isDirection;
}

std::string escaped(char byte) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    return {'\\', 'x', kDigits[value >> 4U], kDigits[value & 0xFU]};
}

} // namespace

std::string printable(std::string_view text, std::size_t limit) {
    std::string line;
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        const bool stays = character.bytes > 0 && isPlain(character.code);
        const std::string next = stays ? std::string(text.substr(0, character.bytes)) : escaped(text.front());
        if (line.size() + next.size() > limit) {
            return line + "...";
        }
        line += next;
        text.remove_prefix(stays ? character.bytes : 1);
    }
    return line;
}
