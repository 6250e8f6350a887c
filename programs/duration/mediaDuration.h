#pragma once

#include <cstdint>
#include <string>

struct MediaDuration {
    std::int64_t microseconds = 0; ///< 0 when the file does not tell
    std::string error;             ///< why not
};

/// The length of the media file open as `input`, as its container's header tells it or, where that has none, as the
/// packets' times do. Reads nothing else: a container that refers to other files has none.
///
/// @param verbose  whether the demuxer's messages go to standard error.
MediaDuration measureDuration(int input, bool verbose);
