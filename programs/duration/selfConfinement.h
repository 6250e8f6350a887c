#pragma once

/// From here on this process can read and seek in `input`, write to descriptors 1 and 2 and to the system log where
/// that is open already, use memory and end; every other system call fails with EPERM. Cannot be taken back. False when
/// the kernel refuses.
bool allowOnlyReading(int input);
