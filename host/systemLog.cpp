#include "host/systemLog.h"

#include "util/printableText.h"

#include <syslog.h>

#include <cerrno>
#include <new>

namespace host {

void logFailure(const char* area, std::string_view what) noexcept {
    constexpr std::size_t kLoggedBytes = 500;
    const int before = errno;
    try {
        syslog(LOG_ERR, "vexoplatform: %s: %s", area, printable(what, kLoggedBytes).c_str());
    } catch (const std::bad_alloc&) {
        syslog(LOG_ERR, "vexoplatform: %s: no memory to tell of a failure", area);
    }
    errno = before;
}

} // namespace host
