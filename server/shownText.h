#pragma once

#include "util/printableText.h"

#include <array>
#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

namespace server {

/// Foreign text, a file's name mostly, as a terminal may show it.
inline std::string shown(std::string_view text) {
    constexpr std::size_t kLongest = 4096;
    return printable(text, kLongest);
}

/// In the machine's own time zone.
inline std::string shownTime(std::time_t seconds) {
    std::tm local{};
    std::array<char, 32> text{};
    if (localtime_r(&seconds, &local) != nullptr) {
        (void)std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    }
    return text.data();
}

} // namespace server
