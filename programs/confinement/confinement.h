#pragma once

#include <sys/resource.h>

/// What a process may use up.
struct Limits {
    rlim_t addressSpaceBytes;
    rlim_t processorSeconds; ///< SIGXCPU tells of their end and comes again each second; two more, and it is killed
    rlim_t fileBytes;        ///< of a file that it writes; SIGXFSZ tells
};

/// Lowers the limits of this process, and of what it starts, to these; lower ones stay. No core is left. False when the
/// kernel refuses.
bool limitResources(const Limits& limits);

/// What a confined process may do beside what each may.
enum class Liberty {
    none,
    threads,   ///< start threads of its own, as many as its limits leave room for
    systemLog, ///< write to the system log, where that is open already
};

/// From here on this process can read, seek in and write the descriptors that it holds, use memory, though none that is
/// made executable, tell the time and end. Every other system call fails with ENOSYS: it opens no path and no socket,
/// starts no process, and reaches no other one. Cannot be taken back. To be called before there are other threads.
/// False when the kernel refuses the filter of system calls.
bool confine(Liberty liberty);

/// Its second wall, which holds alone too: by Landlock, no path is opened and nothing connected to. False where the
/// kernel has none, or refuses it.
bool closeFiles();
