#pragma once

#include "programs/frame/videoFile.h"
#include "programs/media/libav.h"

/// Finds the picture of a second: the first intra-coded frame shown at or after it, or, when none follows, the last one
/// before it. Throws MediaError when that frame is damaged, or when bytes between the second and the frame are not
/// there yet, so that nobody can know which frame is the first.
Libav<AVFrame> findFrame(VideoFile& file, int second);
