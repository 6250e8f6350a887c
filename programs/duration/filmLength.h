#pragma once

#include "programs/media/presentBytes.h"

#include <cstdint>

/// The length of the film open as `descriptor`, in microseconds: as the container's head tells or, where that has none,
/// as the packets' times do. Throws MediaError where nothing tells one.
///
/// Of an unfinished film the bytes that are missing count as much as those that are there.
std::int64_t lengthOf(int descriptor, Download download);
