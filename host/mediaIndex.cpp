#include "platform/mediaIndex.h"

#include "host/mediaIndex.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace {

/// An extension of up to eight letters as one number, which compares faster than text.
using Word = std::uint64_t;

// The caller's locale has no say in what a film is called.
constexpr char lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// @return 0, which no list holds, for a text that is too long.
constexpr Word wordOf(std::string_view text) {
    Word word = 0;
    if (text.size() <= sizeof word) {
        for (const char letter : text) {
            word = word << 8U | static_cast<unsigned char>(lower(letter));
        }
    }
    return word;
}

template <std::size_t Size>
constexpr std::array<Word, Size> wordsOf(const std::array<const char*, Size>& extensions) {
    std::array<Word, Size> words = {};
    for (std::size_t at = 0; at < Size; ++at) {
        words[at] = wordOf(extensions[at]);
    }
    return words;
}

constexpr auto kVideo = wordsOf(host::kVideoExtensions);

// A photo in a format that the programs at the fixed paths cannot read, as of a camera's raw data, would be planned
// again and again and never made.

constexpr auto kPhoto =
    wordsOf(std::array{"apng", "avif", "bmp", "dib", "gif", "heic",  "heics", "heif", "hif",  "jfif", "jp2",
                       "jpe",  "jpeg", "jpg", "jxl", "mpo", "pjpeg", "png",   "tif",  "tiff", "webp"});

constexpr auto kSubtitle = wordsOf(std::array{"ass", "dfxp", "idx", "lrc", "mks", "pjs", "sami", "sbv", "smi", "srt",
                                              "ssa", "stl", "sub", "sup", "ttml", "vtt"});

template <typename List>
bool holds(const List& list, std::string_view extension) {
    const Word word = wordOf(extension);
    return word != 0 && std::find(list.begin(), list.end(), word) != list.end();
}

} // namespace

int BlVEXOIndexIsVideo(const char* extension) {
    return extension != nullptr && holds(kVideo, extension);
}

int BlVEXOIndexIsPhoto(const char* extension) {
    return extension != nullptr && holds(kPhoto, extension);
}

int BlVEXOIndexIsSubtitleFile(const char* name) {
    const std::string_view whole = name != nullptr ? name : "";
    const std::size_t dot = whole.rfind('.');
    return dot != std::string_view::npos && holds(kSubtitle, whole.substr(dot + 1));
}
