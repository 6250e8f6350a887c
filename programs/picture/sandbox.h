#pragma once

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

/// The descriptor of a worker that ties its life to this process, which it does not outlive. With one byte written
/// there it can say that its output is whole: it is then ended, its exit status 0.
constexpr int kLifeline = 3;

/// A program that decodes, and what it may have: an empty root into which only the system's libraries and `visible` are
/// bound read-only, the system calls of sandboxFilter.h, so no network and no process but its own, and four
/// descriptors: the input as 0, the output, a regular file, as 1, what it says, collected, as 2, and kLifeline.
struct Worker {
    std::vector<std::string> argv;    ///< program and arguments; the program needs an absolute path
    std::vector<std::string> visible; ///< further files and folders it may read; those that do not exist are left out
    std::vector<std::string> environment; ///< "NAME=value"; the worker has no other variables
    std::uint64_t addressSpaceBytes = std::uint64_t{2} << 30U;
    std::uint64_t outputBytes = std::uint64_t{64} << 20U; ///< of the output file
    unsigned processorSeconds = 60;
    unsigned deadlineSeconds = 60; ///< wall clock; at its end every process of the worker is killed
};

/// How a worker ended.
struct Outcome {
    enum class End : std::uint8_t {
        exited,      ///< by itself; `status` is its exit status
        killed,      ///< by signal `status`
        deadline,    ///< `status` is the number of seconds it had
        interrupted, ///< this process received signal `status` (SIGTERM, SIGINT or SIGHUP)
        noSandbox,   ///< it never started; `said` says why
    };
    End end = End::noSandbox;
    int status = 0;
    std::string said;   ///< the end of what it said, its lines joined by "; "; at most 300 bytes
    int storeError = 0; ///< of an exited worker: 0 when all that it wrote is on the disk, else the errno

    [[nodiscard]] bool succeeded() const { return end == End::exited && status == 0; }
    /// "the time limit of 60 s" and the like when a limit ended the worker, else empty.
    [[nodiscard]] std::string limit() const;
};

/// Runs the worker to its end. From here on SIGTERM, SIGINT and SIGHUP no longer end this process at once: they end the
/// worker and are told by the outcome. The worker also dies with this process, whatever kills it at whatever moment.
Outcome runSandboxed(const Worker& worker, int input, int output);

/// Prepares a process for the functions above: descriptors 0 to 2 are open, children can be waited for, and this
/// process receives SIGTERM when the one that started it dies.
void prepareProcess();
