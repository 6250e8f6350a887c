#pragma once

#include <string>
#include <vector>

#pragma GCC visibility push(default)

/// @file
/// Programs whose output is wanted.

namespace VEXOUtils {

/// Runs one program to its end and keeps what it printed.
///
/// The child is run as platform/process.h tells. One object is one command, used from one thread; it is not copied.
class ProcessRunner {
public:
    /// @param path  the program. @param arg0 its own name as it sees it.
    /// @param arg1,arg2,arg3,arg4,arg5,arg6,arg7,arg8  first arguments; the first null pointer ends the list.
    ProcessRunner(const char* path, const char* arg0, const char* arg1, const char* arg2, const char* arg3,
                  const char* arg4, const char* arg5, const char* arg6, const char* arg7, const char* arg8);
    ~ProcessRunner();
    ProcessRunner(const ProcessRunner&) = delete;
    ProcessRunner& operator=(const ProcessRunner&) = delete;

    /// Appends arguments; the first null pointer ends the list.
    void addArguments(const char* arg1, const char* arg2, const char* arg3, const char* arg4, const char* arg5,
                      const char* arg6, const char* arg7, const char* arg8, const char* arg9);

    /// Runs the program and blocks until it has ended.
    ///
    /// @param capture  keep its standard output; otherwise that is dropped. Standard error is never part of it.
    /// @param wait     true.
    /// @return 0 when the program ran and exited with 0, any other value on failure, also when it printed more than the
    ///         platform keeps.
    int run(bool capture, bool wait);

    /// @return what the last run printed to standard output, whole; empty before a run.
    std::string getCapturedOutput();

private:
    std::vector<std::string> command_; ///< the program's path, then its arguments, its own name first
    std::string output_;
};

} // namespace VEXOUtils

#pragma GCC visibility pop
