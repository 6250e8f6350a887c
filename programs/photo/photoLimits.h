#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

constexpr const char* kTooManyPixels = "the limit of 400 million pixels was reached";

/// A limit of ours that a photo does not fit in.
struct LimitReached : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Whether a photo says that it has so many pixels that no memory is taken for it.
inline bool hasTooManyPixels(std::int64_t width, std::int64_t height) {
    constexpr std::int64_t kMostPixels = 400'000'000;
    return width * height > kMostPixels;
}

/// Throws std::runtime_error when more than a tenth of the lines are missing.
inline void requireMostLines(int decoded, int all) {
    if (std::int64_t{decoded} * 10 < std::int64_t{all} * 9) {
        throw std::runtime_error("only " + std::to_string(decoded) + " of " + std::to_string(all) +
                                 " lines can be decoded");
    }
}
