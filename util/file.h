#pragma once

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// @file
/// Utilities of the download area. They keep no state, may be called from any thread, block until the programs that
/// they run have ended, and report failures by their result; some failures also write a line to the system log
/// (LOG_ERR).

/// Finds the temporary download directory: the target of the link /var/services/download, as stored in the link.
///
/// @param buf   owned by the caller; filled with zeros first, then with the directory as a terminated text. The text
///              stays there when a later check fails.
/// @param size  capacity of buf in bytes; the directory may take size - 1.
/// @return 0 when the directory exists, is a directory and lies on a writable volume; -1 otherwise.
int GetTmpDownloadDir(char* buf, int size);

/// Tells whether the volume of the temporary download directory is nearly full.
///
/// @return 1 when less than 1 MiB (1048576 bytes) is available to unprivileged users, 0 when at least that much is,
///         -1 when the check could not be made. Only 0 means enough space.
int TmpVolumeSpaceCheck(void);

/// Removes a path of a task's temporary files, recursively and by force. No check is made on the path.
///
/// @param path  file, directory or link; a link is removed, not its target.
/// @param flag  not 0: what the removal prints as an error goes to the system log too; 0: it is dropped.
/// @return 0 when it is gone, -1 otherwise.
int RemoveTaskTemp(const char* path, int flag);

/// Asks whether a user's disk quota admits more data. A member of the administrators group is always admitted.
///
/// @param uid     the user's number.
/// @param target  where the data would go, handed to the user tool unchanged.
/// @param size    bytes.
/// @return 0 for yes; -1 for no, or when the answer could not be obtained.
int VEXODLQuotaCheck(unsigned int uid, const char* target, unsigned long long size);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
