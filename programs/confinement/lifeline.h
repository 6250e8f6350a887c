#pragma once

#include "programs/confinement/confinement.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

/// The descriptor on which a worker, a program that decodes for another one, tells of itself, a byte each time.
constexpr int kLifeline = 3;

enum class Word : char {
    confined = 'c', ///< the kernel has confined it; only now does it read
    whole = 'w',    ///< its output is whole, and it has no more to do
};

/// Without one who listens there, the exit status tells.
inline void tell(Word word) {
    (void)!write(kLifeline, &word, 1);
}

/// Confines this worker and tells so, or ends it with the reason on standard error.
inline void confineWorker(Liberty liberty) {
    if (!confine(liberty)) {
        dprintf(STDERR_FILENO, "the kernel takes no filter of system calls\n");
        _exit(EXIT_FAILURE);
    }
    tell(Word::confined);
}
