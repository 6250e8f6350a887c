#include "platform/process.h"

#include "host/failure.h"
#include "host/process/childProcess.h"
#include "util/printableText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <new>
#include <string_view>
#include <vector>

#include <syslog.h>

namespace {

constexpr int kLogErrors = 0x40; ///< bit of VLIBCExecl's options
constexpr std::size_t kLoggedLines = 16;
constexpr std::size_t kLoggedBytes = 256; ///< of a line

/// execve's type for arguments; they are not changed.
char* argument(const char* text) {
    return const_cast<char*>(text);
}

/// One message per line. What the child did counts, so a lack of memory costs only its lines.
void logErrors(const char* path, std::string_view text) try {
    for (std::size_t lines = 0; lines < kLoggedLines && !text.empty(); ++lines) {
        const std::string_view line = text.substr(0, text.find('\n'));
        syslog(LOG_ERR, "%s: %s", path, printable(line, kLoggedBytes).c_str());
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
} catch (const std::bad_alloc&) {
    syslog(LOG_ERR, "%s: no memory for what it printed", path);
}

} // namespace

int VLIBCExec(const char* path, const char* arg1, const char* arg2, const char* arg3, const char* arg4) {
    const std::array<char*, 6> argv = {argument(path), argument(arg1), argument(arg2),
                                       argument(arg3), argument(arg4), nullptr};
    const int result = host::runChild(path, argv.data(), host::Keep::nothing, host::kQuestionDeadline).result;
    if (result < 0) { // any exit status is an answer
        host::keepProgramFailure(path, result, {});
    }
    return result;
}

int VLIBCExecl(const char* path, int options, ...) try {
    va_list more;
    std::size_t count = 0;
    va_start(more, options);
    while (va_arg(more, const char*) != nullptr) {
        ++count;
    }
    va_end(more);

    std::vector<char*> argv(count + 2, nullptr);
    argv[0] = argument(path);
    va_start(more, options);
    for (std::size_t i = 1; i <= count; ++i) {
        argv[i] = va_arg(more, char*);
    }
    va_end(more);

    const host::Keep keep = (options & kLogErrors) != 0 ? host::Keep::errors : host::Keep::nothing;
    const host::ChildReport report = host::runChild(path, argv.data(), keep, host::kWorkDeadline);
    logErrors(path, report.errors);
    return report.result;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

int VLIBCExecv(const char* path, char* const argv[], int flag) {
    if (flag != 1) {
        errno = EINVAL;
        return -EINVAL;
    }
    const host::ChildReport report = host::runChild(path, argv, host::Keep::errors, host::kWorkDeadline);
    const int result = report.result;
    host::keepProgramFailure(path, result, report.errors);
    if (result != 0) {
        errno = result < 0 ? -result : 0;
    }
    return result;
}
