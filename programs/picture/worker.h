#pragma once

#include "programs/confinement/confinement.h"

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

/// A program that decodes. It starts without rights beyond its caller's, but with four descriptors alone: the input as
/// 0, the output, a regular file, as 1, what it says, collected, as 2, and kLifeline (lifeline.h). It confines itself
/// before it looks at the first byte of the input.
struct Worker {
    std::vector<std::string> argv; ///< program and arguments; the program needs an absolute path. No environment
    Limits limits;                 ///< from its start on
    unsigned deadlineSeconds = 60; ///< wall clock; at its end the worker is killed
};

/// How a worker ended.
struct Outcome {
    enum class End : std::uint8_t {
        exited,      ///< by itself; `status` is its exit status, which is its own word
        killed,      ///< by signal `status`
        deadline,    ///< `status` is the number of seconds it had
        interrupted, ///< this process received signal `status` (SIGTERM, SIGINT or SIGHUP)
        notConfined, ///< before it could read anything; `said` says why
    };
    End end = End::notConfined;
    int status = 0;
    std::string said;   ///< the end of what it said, its lines joined by "; "; at most 300 bytes
    int storeError = 0; ///< of an exited worker: 0 when all that it wrote is on the disk, else the errno

    [[nodiscard]] bool succeeded() const { return end == End::exited && status == 0; }
    /// "the time limit of 60 s" and the like when a limit ended the worker, else empty.
    [[nodiscard]] std::string limit() const;
};

/// Runs the worker to its end. From here on SIGTERM, SIGINT and SIGHUP no longer end this process at once: they end the
/// worker and are told by the outcome. The worker also dies with this process, whatever kills it at whatever moment.
Outcome runWorker(const Worker& worker, int input, int output);

/// Prepares a process for the functions above: descriptors 0 to 2 are open, children can be waited for, and this
/// process receives SIGTERM when the one that started it dies.
void prepareProcess();
