#pragma once

#include "programs/picture/pictureFront.h"

/// ImageMagick on the photo open as `input`, with the one decoder that the photo's first bytes name. Refuses what
/// begins like no picture format of the list, a JPEG or GIF file that was cut short, and a JPEG file of more than 400
/// million pixels.
std::variant<Worker, Refusal> photoWorker(int input);
