#pragma once

#include <vips/vips8>

/// The picture in sRGB, 8 bits: by the profile in it, if it can be used, else by what the HEIC or AVIF file `heif`,
/// unless null, says of its colours. High dynamic range is shown as convertColours() does.
vips::VImage onScreen(const vips::VImage& picture, const vips::VSource* heif);
