#include "benchmarks/engineProcess.h"

#include "tests/host/loopbackEngine.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace {

using Answers = std::map<int, std::string>;

std::string listOf(const std::string& downloadRoot, const Answers& answers) {
    std::string torrents;
    for (const auto& [task, answer] : answers) {
        const std::string number = std::to_string(task);
        torrents.append(R"({"downloadDir":")").append(downloadRoot).append("/").append(number);
        torrents.append(R"(","hashString":")").append(number).append(R"("},)");
    }
    torrents.pop_back();
    return success("[" + torrents + "]");
}

/// Serves until it is killed, once it has written its address to the pipe.
[[noreturn]] void serve(int pipe, const std::string& downloadRoot, const Answers& answers) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::string list = listOf(downloadRoot, answers);
    Answers replies;
    for (const auto& [task, answer] : answers) {
        replies[task] = http(200, answer);
    }
    const LoopbackEngine engine([&](const std::string& request) {
        const std::size_t ids = request.find(R"("ids":[")");
        return ids == std::string::npos ? list : replies.at(std::stoi(request.substr(ids + 8)));
    });
    (void)!write(pipe, engine.url.data(), engine.url.size());
    for (;;) {
        pause();
    }
}

} // namespace

EngineProcess::EngineProcess(const std::string& downloadRoot, const Answers& answers) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    process_ = fork();
    if (process_ == 0) {
        serve(ends[1], downloadRoot, answers);
    }
    close(ends[1]);
    std::array<char, 256> url{}; // shorter, and written at once
    const ssize_t size = read(ends[0], url.data(), url.size() - 1);
    close(ends[0]);
    if (process_ < 0 || size <= 0) {
        throw std::runtime_error("no engine");
    }
    setenv("VEXODL_RPC_URL", url.data(), 1);
}

EngineProcess::~EngineProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}
