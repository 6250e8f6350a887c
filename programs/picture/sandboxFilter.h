#pragma once

/// Writes the system call filter of a worker to a descriptor, as bubblewrap takes it.
///
/// A worker can read and write what it holds, open what it sees, use memory, and start threads. Everything else fails
/// with ENOSYS: it opens no socket of any kind, starts no process, leaves its process group no more, and reaches no
/// other process, though all of the machine have numbers there. False with errno set on failure.
bool writeSandboxFilter(int descriptor);
