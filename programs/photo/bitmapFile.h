#pragma once

#include <vips/vips8>

/// Loads the decoder of BMP files, which is a module.
void prepareBitmaps();

bool isBitmap(const vips::VSource& source);

/// The photo in a BMP file, its pixels in memory. Throws std::runtime_error with the reason.
vips::VImage readBitmap(const vips::VSource& source);
