#include "server/shownLog.h"

#include "util/printableText.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

const char* shownAs = nullptr; ///< null where nothing is shown

void show(const char* format, va_list arguments) {
    constexpr std::size_t kLongest = 16384; // two paths of nothing but control characters would be longer
    char* text = nullptr;
    if (vasprintf(&text, format, arguments) >= 0) {
        const std::unique_ptr<char, void (*)(void*)> owned(text, std::free);
        (void)std::fprintf(stderr, "%s: %s\n", shownAs, printable(text, kLongest).c_str());
    }
}

void write(int priority, const char* format, va_list arguments) {
    if (shownAs != nullptr) {
        const int before = errno; // the log writes it, too, where the format says so
        va_list again;
        va_copy(again, arguments);
        show(format, again);
        va_end(again);
        errno = before;
    }
    vsyslog(priority, format, arguments);
}

} // namespace

void showLog(const char* program) {
    shownAs = program;
    openlog(program, 0, LOG_USER);
}

// In the place of the C library's function, for the libraries of this process too: its own LOG_PERROR would show a name
// as it is. The second name is what it is called by in code that was compiled with _FORTIFY_SOURCE.

extern "C" {

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
__attribute__((visibility("default"))) void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write(priority, format, arguments);
    va_end(arguments);
}

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
__attribute__((visibility("default"), format(printf, 3, 4))) void __syslog_chk(int priority, int /*flag*/,
                                                                               const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write(priority, format, arguments);
    va_end(arguments);
}

} // extern "C"
