#include "programs/front/diagnosis.h"

#include "util/printableText.h"

#include <syslog.h>
#include <unistd.h>

bool writeLine(int descriptor, const std::string& line) {
    const std::string whole = line + '\n';
    return write(descriptor, whole.data(), whole.size()) == static_cast<ssize_t>(whole.size());
}

void report(const char* program, std::string_view file, std::string_view what) {
    constexpr std::size_t kLongestName = 300;
    constexpr std::size_t kLongestText = 300;
    const std::string line = printable(file, kLongestName) + ": " + printable(what, kLongestText);
    (void)writeLine(STDERR_FILENO, program + (": " + line));
    openlog(program, LOG_PID, LOG_USER);
    syslog(LOG_ERR, "%s", line.c_str());
}
