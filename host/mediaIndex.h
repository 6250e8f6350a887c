#pragma once

#include <array>

namespace host {

/// By these a film is planned. A film that the programs at the fixed paths cannot read would be planned again and again
/// and never made, as disk images: a test holds this list beside the containers that they know.
inline constexpr std::array kVideoExtensions = {
    "3g2", "3gp", "asf",  "avi", "divx", "dv",  "dvr-ms", "f4v",  "flv", "m1v", "m2t", "m2ts",
    "m2v", "m4v", "mkv",  "mov", "mp4",  "mpe", "mpeg",   "mpg",  "mts", "mxf", "ogm", "ogv",
    "qt",  "rm",  "rmvb", "tp",  "trp",  "ts",  "vob",    "webm", "wmv", "wtv",
};

} // namespace host
