#pragma once

#include <vips/vips8>

#include <string>
#include <string_view>

// What a file says of its photo and libvips does not tell.

/// EXIF's number in a PNG file, 1 to 8; 0 where it has none.
int orientationInPng(const vips::VSource& source);

/// The PNG file with the chunk that its end cuts, if any, as long as what is there of it: libpng passes on nothing of a
/// block that it cannot read whole.
std::string mendedPng(const vips::VSource& source);

/// The colour profile in a JPEG 2000 file; empty where it has none.
std::string_view profileInJpeg2000(const vips::VSource& source);
