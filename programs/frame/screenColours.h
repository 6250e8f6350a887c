#pragma once

#include "programs/media/libav.h"

struct PictureSize {
    int width;
    int height;
};

/// The frame as the readers of a JPEG expect it: scaled to `size`, of one moment, in sRGB as BT.601 of full range, with
/// 8 bits in planes; 4:2:0, or 4:4:4 where the frame is that or a side is odd. What a frame does not say of its colours
/// is assumed as players do. High dynamic range (PQ, HLG) is shown with paper white (203 cd/m2) and what is darker as
/// in a standard-range film, and highlights compressed. Throws MediaError.
Libav<AVFrame> shownOnScreen(Libav<AVFrame> frame, const AVCodecParameters& codec, PictureSize size);
