#pragma once

#include <vips/vips8>

/// The photo in `source` as it is shown: its first frame that shows something, on white or, where all of it is white,
/// on light grey; upright; at most 1024 pixels wide and high; in sRGB. Of a PNG or TIFF a tenth of the lines may be
/// missing. Throws vips::VError, or std::runtime_error with the reason.
vips::VImage smallPicture(const vips::VSource& source);
