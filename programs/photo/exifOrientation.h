#pragma once

#include <cstddef>

/// The orientation that EXIF data tell, 1 to 8; 0 where they tell none. They begin with "Exif" and two zeros.
int exifOrientation(const unsigned char* data, std::size_t size);
