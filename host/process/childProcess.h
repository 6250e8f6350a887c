#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace host {

// One way to run a program for all operations of platform/process.h and platform/processRunner.h. What the child sees
// and leaves behind is told there; the environment it gets is PATH and LANG.

/// For programs that work on media or remove files: the media programs end themselves after 300 seconds and are given
/// the time to do so.
constexpr std::chrono::seconds kWorkDeadline{330};
/// For programs that answer a question about one file, a volume or a user.
constexpr std::chrono::seconds kQuestionDeadline{60};
/// Of what a program prints so much is kept; an answer takes a few hundred bytes.
constexpr std::size_t kKeptBytes = 1UL << 20;

/// The output of a program that is kept; all other is dropped. Standard error is kept where a descriptor is left for
/// it.
enum class Keep { nothing, errors, outputAndErrors };

struct ChildReport {
    int result = 0;    ///< exit status, 0 to 255, or a negative errno: why the program could not be run, -ETIME when it
                       ///< was killed at the deadline, -ECANCELED when a signal ended it
    bool whole = true; ///< false: it printed more output than was kept
    std::string output;
    std::string errors;
};

/// Runs a program to its end.
///
/// @param path      the program. @param argv all its arguments, its own name first, ended by a null pointer.
/// @param deadline  from now, after which its process group is told to end (SIGTERM) and killed a second later; so it
///                  is when the caller's process dies.
/// Blocks until the child and what is left of its process group have ended. One that sleeps uninterruptibly, as on a
/// disk that does not answer, dies only when it wakes: the call waits for it beyond the deadline.
/// Output beyond the limit is read and dropped. errno is left alone.
ChildReport runChild(const char* path, char* const* argv, Keep keep, std::chrono::nanoseconds deadline) noexcept;

} // namespace host
