#pragma once

#include "programs/media/libav.h"

/// Leaves every other line of a frame, in planes, whose two fields show two moments: what moves would have teeth. A
/// frame whose lines show one moment is left as it is.
void dropCombedField(AVFrame& frame);
