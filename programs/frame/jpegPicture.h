#pragma once

#include "programs/media/libav.h"

/// The frame of the stream as a JPEG picture, as a player shows it (screenColours.h) and in the best quality: with
/// square pixels, turned upright, shrunk so that its longer side has at most 1080 pixels.
///
/// @param pixel  width of a pixel by its height; 0 where nobody knows.
/// Throws MediaError.
Libav<AVPacket> makeJpeg(const AVFrame& frame, const AVStream& stream, AVRational pixel);
