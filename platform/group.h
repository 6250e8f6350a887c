#pragma once

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// @file
/// Groups of users.

/// Is the user a member of the administrators group, by primary group or by membership?
///
/// @param uid    the user's number.
/// @param flag   1.
/// @return -1 when it cannot be told (no such user, the user database fails), 0 for no, any other value for yes.
/// Blocks on the user database. Safe from any thread.
int VLIBGroupIsAdminGroupMemByUid(unsigned int uid, int flag);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
