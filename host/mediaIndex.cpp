#include "platform/mediaIndex.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

// Each list is sorted for the search. A video or photo that the programs at the fixed paths cannot read would be
// planned again and again and never made: disk images and camera raw formats are therefore left out.

constexpr auto kVideo = std::array<std::string_view, 34>{
    "3g2", "3gp", "asf",  "avi", "divx", "dv",  "dvr-ms", "f4v",  "flv", "m1v", "m2t", "m2ts",
    "m2v", "m4v", "mkv",  "mov", "mp4",  "mpe", "mpeg",   "mpg",  "mts", "mxf", "ogm", "ogv",
    "qt",  "rm",  "rmvb", "tp",  "trp",  "ts",  "vob",    "webm", "wmv", "wtv"};

constexpr auto kPhoto = std::array<std::string_view, 14>{"avif", "bmp",  "dib", "gif", "heic", "heif", "jfif",
                                                         "jpe",  "jpeg", "jpg", "png", "tif",  "tiff", "webp"};

constexpr auto kSubtitle = std::array<std::string_view, 16>{"ass", "dfxp", "idx", "lrc", "mks", "pjs", "sami", "sbv",
                                                            "smi", "srt",  "ssa", "stl", "sub", "sup", "ttml", "vtt"};

template <typename List>
constexpr bool isSorted(const List& list) {
    for (std::size_t at = 1; at < list.size(); ++at) {
        if (!(list[at - 1] < list[at])) {
            return false;
        }
    }
    return true;
}
static_assert(isSorted(kVideo) && isSorted(kPhoto) && isSorted(kSubtitle));

// The caller's locale has no say in what a film is called.
char lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

template <typename List>
bool holds(const List& list, std::string_view extension) {
    std::array<char, 8> word{}; // longer than every extension
    if (extension.size() > word.size()) {
        return false;
    }
    std::transform(extension.begin(), extension.end(), word.begin(), lower);
    return std::binary_search(list.begin(), list.end(), std::string_view(word.data(), extension.size()));
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
