#include "server/reason.h"

#include "util/printableText.h"

#include <exception>

namespace server {

std::string reasonOf(const host::Failure& failure, const std::string& file) {
    constexpr std::size_t kLongestName = 300; // as the programs cut it
    using Kind = host::Failure::Kind;
    if (failure.kind == Kind::engine) {
        return "torrent engine: " + failure.reason;
    }
    if (failure.kind == Kind::database) {
        return "thumbnail database: " + failure.reason;
    }
    const std::string program = failure.program.substr(failure.program.rfind('/') + 1);
    const std::string known = program + ": " + printable(file, kLongestName) + ": ";
    const bool isKnown = failure.reason.compare(0, known.size(), known) == 0;
    return failure.reason.empty() ? "no picture" : failure.reason.substr(isKnown ? known.size() : 0);
}

std::string whyNoFiles(int task) {
    const host::Failure failure = host::lastFailure();
    if (failure.kind != host::Failure::Kind::none) {
        return reasonOf(failure);
    }
    try {
        const host::EngineTasks all = host::allTasks();
        const auto found = all.tasks.find(task);
        if (found == all.tasks.end()) {
            return "the torrent engine has no torrent that downloads to /var/services/download/" + std::to_string(task);
        }
        return found->second.sizeWhenDone <= 0 ? "its torrent has no list of files yet, or none is wanted"
                                               : "the torrent engine's answer is no list of files";
    } catch (const std::exception& error) {
        return std::string("torrent engine: ") + error.what();
    }
}

} // namespace server
