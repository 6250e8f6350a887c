#pragma once

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// @file
/// Runs one program to its end. Arguments are handed over unchanged and no shell is involved. The child reads nothing
/// (standard input is /dev/null), starts with default signal actions and an empty signal mask, and sees neither the
/// caller's environment nor its descriptors. The calling thread blocks until the child has ended; a child that outlives
/// the platform's deadline is killed with its process group and counts as failed. The child is reaped on every path,
/// and nobody else's child ever is. Safe from any thread.

/// Runs a program that answers a question with its exit status.
///
/// @param path  the program; it is its own first argument.
/// @param arg1,arg2,arg3,arg4  its further arguments; the first null pointer ends the list.
/// @return the exit status, 0 to 255 (the service's tools answer 1 for yes), or a negative value when the program could
///         not be run or did not exit by itself.
int VLIBCExec(const char* path, const char* arg1, const char* arg2, const char* arg3, const char* arg4);

/// Runs a program given as an argument list.
///
/// @param path     the program; it is its own first argument.
/// @param options  0x7B or 0x3B. Bit 0x40 set: what the program writes to standard error goes to the system log;
///                 clear: it is dropped.
/// @param ...      further arguments (const char*), ended by a null pointer.
/// @return 0 when the program ran and exited with 0, any other value on failure.
int VLIBCExecl(const char* path, int options, ...);

/// Runs a program given as an argument vector.
///
/// @param path  the program.
/// @param argv  all its arguments, its own name first, ended by a null pointer; not changed.
/// @param flag  1: wait for the end of the program.
/// @return 0 when the program ran and exited with 0, its exit status when that is another, negative when it could not
///         be run or did not exit by itself; errno tells why then.
int VLIBCExecv(const char* path, char* const argv[], int flag);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
