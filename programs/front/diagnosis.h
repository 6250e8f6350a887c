#pragma once

#include <string>
#include <string_view>

/// How the programs that read media end. Anything but `kMade` leaves no new picture behind, and no length printed.
enum ExitStatus : int {
    kMade = 0,
    kNoPicture = 1,       ///< the input holds no picture that can be decoded whole, or tells no length
    kUsage = 2,           ///< the command line is not the one the program takes
    kBadInput = 3,        ///< the input is missing, no regular file, or outside the task's directory
    kBadOutput = 4,       ///< the picture or the length could not be written
    kNotConfined = 5,     ///< the decoder did not start, or the kernel refused to confine it; nothing was read
    kLimitReached = 6,    ///< time, processor time, memory or size ran out
    kNoSpace = 7,         ///< the disk, or somebody's quota on it, has no room for a picture
    kEndedBySignal = 128, ///< plus the number of the signal that ended the program
};

/// Writes a line and its end by one write(2), whatever else this process may do no more. False when that failed.
bool writeLine(int descriptor, const std::string& line);

/// Writes "PROGRAM: FILE: what" as one line to standard error and to the system log. Both texts are made printable.
void report(const char* program, std::string_view file, std::string_view what);
