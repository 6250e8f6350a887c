#pragma once

#include "programs/media/libav.h"

/// The picture, of 8 bits in planes and with as many colour samples in both directions, turned and mirrored as the
/// display matrix of its frame says, or else the stream's. Angles other than quarter turns are left alone.
Libav<AVFrame> turnedUpright(Libav<AVFrame> picture, const AVFrame& frame, const AVStream& stream);
