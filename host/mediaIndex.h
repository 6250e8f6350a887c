#pragma once

#include <array>

namespace host {

/// By these a film is planned. A film that the programs at the fixed paths cannot read would be planned again and again
/// and never made, as disk images: a test holds this list beside the containers that they know.
inline constexpr std::array kVideoExtensions = {
    "264",  "265",  "3g2",  "3gp",  "3gpp", "amv", "asf",  "avi", "divx", "dv",   "dvr-ms", "f4v", "flv",
    "h264", "hevc", "insv", "ismv", "ivf",  "lrv", "m1v",  "m2p", "m2t",  "m2ts", "m2v",    "m4v", "mk3d",
    "mkv",  "mod",  "mov",  "mp4",  "mp4v", "mpe", "mpeg", "mpg", "mpv",  "mts",  "mxf",    "nut", "ogm",
    "ogv",  "qt",   "rm",   "rmvb", "tod",  "tp",  "trp",  "ts",  "vob",  "webm", "wmv",    "wtv", "y4m",
};

} // namespace host
