#include "host/systemLog.h"

#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace host {
namespace {

constexpr std::size_t kLineBytes = 512;

/// A line that takes what fits, its terminator included, and drops the rest.
class Line {
public:
    void append(std::string_view text) {
        for (const char letter : text) {
            const auto byte = static_cast<unsigned char>(letter);
            if (byte < 0x20 || byte == 0x7F) {
                std::array<char, 5> escaped{};
                static_cast<void>(
                    std::snprintf(escaped.data(), escaped.size(), "\\x%02X", static_cast<unsigned>(byte)));
                appendWhole({escaped.data(), 4});
            } else {
                appendWhole({&letter, 1});
            }
        }
    }
    const char* text() const { return bytes_.data(); }

private:
    void appendWhole(std::string_view piece) {
        if (used_ + piece.size() < bytes_.size()) {
            piece.copy(bytes_.data() + used_, piece.size());
            used_ += piece.size();
        }
    }

    std::array<char, kLineBytes> bytes_{};
    std::size_t used_ = 0;
};

} // namespace

void logFailure(std::string_view area, std::string_view what) {
    const int before = errno;
    Line line;
    line.append("vexoplatform: ");
    line.append(area);
    line.append(": ");
    line.append(what);
    syslog(LOG_ERR, "%s", line.text());
    errno = before;
}

} // namespace host
