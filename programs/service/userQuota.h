#pragma once

#include <cstdint>

struct QuotaRoom {
    std::uint64_t bytes = UINT64_MAX; ///< that the user may store more; UINT64_MAX where no quota is set
    int error = 0;                    ///< an errno when the quota cannot be asked
};

/// What a user's quota on the file system of `path` leaves: up to the hard limit, and nothing above the soft one when
/// its time of grace is over. A file system without quota leaves everything.
QuotaRoom userQuotaRoom(std::uint32_t uid, const char* path);
