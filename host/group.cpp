#include "platform/group.h"

#include "host/systemLog.h"

#include <grp.h>
#include <pwd.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace {

constexpr const char* kAdministrators = "administrators";
constexpr std::size_t kLargestEntryBytes = std::size_t{16} * 1048576;

/// Looks an entry of the user database up with whatever buffer it needs; `use` sees it as long as that lives.
/// @return whether there is such an entry. Throws when the database fails.
template <typename Entry, typename LookUp, typename Use>
bool withEntry(LookUp lookUp, Use use) {
    for (std::vector<char> buffer(1024); buffer.size() <= kLargestEntryBytes; buffer.resize(buffer.size() * 4)) {
        Entry entry{};
        Entry* found = nullptr;
        const int error = lookUp(&entry, buffer.data(), buffer.size(), &found);
        if (error == ERANGE) {
            continue;
        }
        if (found != nullptr) {
            use(entry);
        } else if (error != 0 && error != ENOENT && error != ESRCH) { // some databases say "none" like this
            throw std::system_error(error, std::generic_category(), "user database");
        }
        return found != nullptr;
    }
    throw std::runtime_error("an entry of the user database is too large");
}

std::vector<gid_t> groupsOf(const passwd& user) {
    std::vector<gid_t> groups(64);
    int count = static_cast<int>(groups.size());
    while (getgrouplist(user.pw_name, user.pw_gid, groups.data(), &count) < 0) {
        if (count <= static_cast<int>(groups.size())) {
            throw std::runtime_error("the groups of a user cannot be listed");
        }
        groups.resize(static_cast<std::size_t>(count));
    }
    groups.resize(static_cast<std::size_t>(count));
    return groups;
}

bool isAdministrator(uid_t uid) {
    std::vector<gid_t> groups;
    const auto userByUid = [uid](passwd* user, char* buffer, std::size_t size, passwd** found) {
        return getpwuid_r(uid, user, buffer, size, found);
    };
    if (!withEntry<passwd>(userByUid, [&](const passwd& user) { groups = groupsOf(user); })) {
        throw std::runtime_error("no user has the number " + std::to_string(uid));
    }
    std::optional<gid_t> administrators; // none where the group is not set up
    const auto groupByName = [](group* entry, char* buffer, std::size_t size, group** found) {
        return getgrnam_r(kAdministrators, entry, buffer, size, found);
    };
    withEntry<group>(groupByName, [&](const group& entry) { administrators = entry.gr_gid; });
    return administrators && std::find(groups.begin(), groups.end(), *administrators) != groups.end();
}

} // namespace

int VLIBGroupIsAdminGroupMemByUid(unsigned int uid, int /*flag*/) {
    try {
        return isAdministrator(uid) ? 1 : 0;
    } catch (const std::exception& error) {
        host::logFailure("administrators group", error.what());
        return -1;
    }
}
