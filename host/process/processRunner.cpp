#include "platform/processRunner.h"

#include "host/failure.h"
#include "host/process/childProcess.h"

#include <cerrno>
#include <initializer_list>
#include <new>
#include <utility>

namespace {

using Command = std::vector<std::string>;

/// Memory that runs out empties the command, which then cannot be run.
void append(Command& command, std::initializer_list<const char*> arguments) {
    try {
        for (const char* argument : arguments) {
            if (argument == nullptr) {
                return;
            }
            command.emplace_back(argument);
        }
    } catch (const std::bad_alloc&) {
        command.clear();
    }
}

} // namespace

namespace VEXOUtils {

ProcessRunner::ProcessRunner(const char* path, const char* arg0, const char* arg1, const char* arg2, const char* arg3,
                             const char* arg4, const char* arg5, const char* arg6, const char* arg7, const char* arg8) {
    append(command_, {path, arg0, arg1, arg2, arg3, arg4, arg5, arg6, arg7, arg8});
}

ProcessRunner::~ProcessRunner() = default;

void ProcessRunner::addArguments(const char* arg1, const char* arg2, const char* arg3, const char* arg4,
                                 const char* arg5, const char* arg6, const char* arg7, const char* arg8,
                                 const char* arg9) {
    if (!command_.empty()) {
        append(command_, {arg1, arg2, arg3, arg4, arg5, arg6, arg7, arg8, arg9});
    }
}

int ProcessRunner::run(bool capture, bool wait) try {
    output_.clear();
    if (command_.empty() || !wait) {
        return -EINVAL;
    }
    std::vector<char*> argv;
    for (auto argument = command_.begin() + 1; argument != command_.end(); ++argument) {
        argv.push_back(argument->data());
    }
    argv.push_back(nullptr);
    const char* path = command_[0].c_str();
    const auto keep = capture ? host::Keep::outputAndErrors : host::Keep::errors;
    host::ChildReport report = host::runChild(path, argv.data(), keep, host::kQuestionDeadline);
    host::keepProgramFailure(path, report.result, report.errors);
    output_ = std::move(report.output);
    return report.result == 0 && !report.whole ? -EMSGSIZE : report.result;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

std::string ProcessRunner::getCapturedOutput() try { return output_; } catch (const std::bad_alloc&) {
    return {};
}

} // namespace VEXOUtils
