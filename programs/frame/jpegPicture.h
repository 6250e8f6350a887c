#pragma once

#include "programs/media/libav.h"

/// The frame as a JPEG picture: turned upright as the stream says, shrunk so that its longer side has at most 1080
/// pixels (never enlarged), in the best quality. Throws MediaError.
Libav<AVPacket> makeJpeg(Libav<AVFrame> frame, const AVStream& stream);
