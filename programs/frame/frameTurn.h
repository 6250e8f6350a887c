#pragma once

#include "programs/media/libav.h"

/// The frame turned and mirrored as its display matrix says, or else the stream's; as it is when there is none.
/// Angles other than quarter turns are left alone. Throws MediaError.
Libav<AVFrame> turnedUpright(Libav<AVFrame> frame, const AVStream& stream);
