#include "host/failure.h"

#include <exception>
#include <system_error>
#include <utility>

namespace host {
namespace {

thread_local Failure last; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables): one for each thread

std::string_view lastLine(std::string_view text) {
    while (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    return text.substr(text.rfind('\n') + 1); // npos + 1 is 0
}

} // namespace

std::string errorText(int error) {
    return std::generic_category().message(error);
}

void keepFailure(Failure::Kind kind, int status, std::string_view reason) noexcept {
    last.kind = kind;
    last.status = status;
    try {
        last.program.clear();
        last.reason = reason;
    } catch (const std::exception&) {
        last.reason.clear();
    }
}

void keepProgramFailure(const char* path, int result, std::string_view errors) noexcept {
    if (result == 0) {
        return;
    }
    try {
        const std::string_view line = lastLine(errors);
        keepFailure(Failure::Kind::program, result,
                    !line.empty() ? std::string(line)
                    : result < 0  ? errorText(-result)
                                  : "exit status " + std::to_string(result));
        last.program = path;
    } catch (const std::exception&) {
        keepFailure(Failure::Kind::program, result, {});
    }
}

Failure lastFailure() {
    return last;
}

void forgetFailure() {
    last = {};
}

} // namespace host
