#pragma once

#include "util/printableText.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace server {

/// Foreign text, a file's name mostly, as a terminal may show it.
inline std::string shown(std::string_view text) {
    constexpr std::size_t kLongest = 4096;
    return printable(text, kLongest);
}

} // namespace server
