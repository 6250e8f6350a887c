#pragma once

#include <string_view>

/// Whether these bytes are one baseline JPEG picture as the encoders here write it: every segment whole and of a kind
/// that they write, one frame that has a size, one scan, and its end marker as the last two bytes. What the scan's
/// codes say is not looked at.
bool isWholeJpeg(std::string_view file);
