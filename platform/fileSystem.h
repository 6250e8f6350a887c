#pragma once

#include <sys/types.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// @file
/// Directories.

/// Makes a directory with whatever parents it lacks. One that exists already is a success and stays as it is.
///
/// @param path    the directory, not empty.
/// @param base    reserved, null.
/// @param parents 1: make missing parents too.
/// @param uid     owner of what is made, -1 for the caller.
/// @param gid     group of what is made, -1 for the caller's.
/// @param mode    permission bits of what is made, whatever the caller's umask.
/// @return 0 on success, negative otherwise (also when something else stands at the path).
/// Blocks on the disk. Safe from any thread.
int VEXOFSMkdirP(const char* path, const char* base, int parents, int uid, int gid, mode_t mode);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
