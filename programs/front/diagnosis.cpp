#include "programs/front/diagnosis.h"

#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace {

/// Length of the well-formed UTF-8 sequence at the front of `text`, 0 when there is none. Overlong forms pass: the
/// bytes of a terminal's control codes are not among them.
std::size_t sequenceLength(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t length = first < 0x80   ? 1
                               : first < 0xC2 ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF5 ? 4
                                              : 0;
    if (length > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80) {
            return 0;
        }
    }
    return length;
}

bool isPlain(std::string_view sequence) {
    if (sequence.size() == 1) {
        return sequence[0] >= ' ' && sequence[0] != '\\' && sequence[0] != 0x7F;
    }
    const bool secondControlSet = sequence[0] == '\xC2' && static_cast<unsigned char>(sequence[1]) < 0xA0;
    return !sequence.empty() && !secondControlSet;
}

std::string escaped(char byte) {
    std::array<char, 5> text = {};
    (void)std::snprintf(text.data(), text.size(), "\\x%02X", static_cast<unsigned char>(byte));
    return text.data();
}

} // namespace

std::string printable(std::string_view text, std::size_t limit) {
    std::string line;
    while (!text.empty()) {
        const std::string_view sequence = text.substr(0, sequenceLength(text));
        const std::string next = isPlain(sequence) ? std::string(sequence) : escaped(text.front());
        if (line.size() + next.size() > limit) {
            return line + "...";
        }
        line += next;
        text.remove_prefix(isPlain(sequence) ? sequence.size() : 1);
    }
    return line;
}

bool writeLine(int descriptor, const std::string& line) {
    const std::string whole = line + '\n';
    return write(descriptor, whole.data(), whole.size()) == static_cast<ssize_t>(whole.size());
}

void report(const char* program, std::string_view file, std::string_view what) {
    constexpr std::size_t kLongestName = 300;
    constexpr std::size_t kLongestText = 300;
    const std::string line = printable(file, kLongestName) + ": " + printable(what, kLongestText);
    (void)writeLine(STDERR_FILENO, program + (": " + line));
    openlog(program, LOG_PID, LOG_USER);
    syslog(LOG_ERR, "%s", line.c_str());
}
