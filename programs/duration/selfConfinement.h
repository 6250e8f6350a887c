#pragma once

#include <sys/resource.h>

/// Limits this process to so many bytes of address space beyond what it has, and to so many seconds of processor time.
/// SIGXCPU tells of the time's end and comes again each second; a process that goes on for long is killed. False when
/// the kernel refuses.
bool limitResources(rlim_t bytes, rlim_t seconds);

/// From here on this process can read and seek in `input`, write to descriptors 1 and 2 and to the system log where
/// that is open already, use memory and end; every other system call fails with EPERM. Cannot be taken back. False when
/// the kernel refuses.
bool allowOnlyReading(int input);
