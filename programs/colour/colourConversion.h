#pragma once

#include "programs/colour/planarPicture.h"

/// Converts the samples of `from`, as its format says what they are, into those of `to`: size, matrix, range, primaries
/// and curve in one go. High dynamic range (PQ, HLG) becomes what a screen can show: paper white, 203 cd/m2, stays
/// nearly white, and what is brighter is compressed up to 2,000 cd/m2.
///
/// @param filter  of a change of size
///
/// Throws std::runtime_error where the two formats have no way between them.
void convertColours(const Planes& from, const Planes& to, zimg_resample_filter_e filter = ZIMG_RESIZE_BICUBIC);
