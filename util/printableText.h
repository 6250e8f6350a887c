#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Foreign text as one line that does nothing to a terminal, a log or the line's reader: control characters, those that
/// change the direction of writing and what is not well-formed UTF-8 stand as \xNN, a byte each. All else stays byte
/// for byte, the backslash too.
///
/// @param limit  bytes of the result; "..." follows where that cuts it, never within a character.
std::string printable(std::string_view text, std::size_t limit);
