#include "programs/picture/worker.h"

#include "programs/confinement/lifeline.h"
#include "util/descriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFirstSignal = 1;
constexpr int kLastSignal = 31;

sigset_t endingSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&set, signal);
    }
    return set;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> list;
    list.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        list.push_back(text.data());
    }
    list.push_back(nullptr);
    return list;
}

/// Makes them the descriptors 0, 1, ... and closes all others.
bool placeDescriptors(std::array<int, kLifeline + 1> numbers) {
    constexpr int kCount = static_cast<int>(numbers.size());
    for (int& number : numbers) {
        number = fcntl(number, F_DUPFD_CLOEXEC, kCount); // out of the way of those placed before it
    }
    for (int place = 0; place < kCount; ++place) {
        if (dup2(numbers.at(static_cast<std::size_t>(place)), place) < 0) {
            return false;
        }
    }
    closefrom(kCount);
    return true;
}

void resetSignals() {
    for (int signal = kFirstSignal; signal <= kLastSignal; ++signal) {
        std::signal(signal, SIG_DFL); // NOLINT(cert-err33-c): two of them cannot be set
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

struct Pipe {
    Descriptor reading;
    Descriptor writing;
};

Pipe makePipe() {
    std::array<int, 2> ends = {-1, -1};
    const bool made = pipe2(ends.data(), O_CLOEXEC) == 0;
    return made ? Pipe{Descriptor(ends[0]), Descriptor(ends[1])} : Pipe();
}

struct Child {
    pid_t pid = -1;
    Descriptor messages;
    Descriptor lifeline;
};

/// What becomes the worker. It leads a session of its own, so a terminal's signals come to this process alone.
[[noreturn]] void becomeWorker(const Worker& worker, pid_t parent, const std::array<int, kLifeline + 1>& descriptors) {
    std::vector<std::string> arguments = worker.argv;
    const std::vector<char*> argv = pointers(arguments);
    std::array<char*, 1> environment = {nullptr};
    resetSignals();
    if (placeDescriptors(descriptors) && setsid() >= 0 && prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 &&
        getppid() == parent && limitResources(worker.limits)) {
        execve(argv[0], argv.data(), environment.data());
    }
    dprintf(STDERR_FILENO, "%s: %s\n", argv[0], std::strerror(errno)); // NOLINT(concurrency-mt-unsafe): one thread
    _exit(EXIT_FAILURE);
}

Child start(const Worker& worker, int input, int output) {
    Pipe messages = makePipe();
    Pipe lifeline = makePipe();
    if (!messages.writing || !lifeline.writing) {
        return {};
    }
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        becomeWorker(worker, parent, {input, output, messages.writing.get(), lifeline.writing.get()});
    }
    fcntl(messages.reading.get(), F_SETFL, O_NONBLOCK);
    return {pid, std::move(messages.reading), std::move(lifeline.reading)};
}

/// Keeps the end of what the child says.
class Messages {
public:
    /// False at the end of the stream, or when there is nothing to read now.
    bool readFrom(int descriptor) {
        std::array<char, 4096> block = {};
        const ssize_t count = read(descriptor, block.data(), block.size());
        if (count <= 0) {
            return false;
        }
        text_.append(block.data(), static_cast<std::size_t>(count));
        if (text_.size() > kKept) {
            text_.erase(0, text_.size() - kKept);
        }
        return true;
    }

    [[nodiscard]] std::string asOneLine() const {
        std::string line;
        for (const char byte : text_.substr(0, text_.find_last_not_of("\r\n \t") + 1)) {
            line += byte == '\n' ? "; " : std::string(1, byte);
        }
        return line;
    }

private:
    static constexpr std::size_t kKept = 300;
    std::string text_;
};

int millisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

bool conclude(Outcome& outcome, Outcome::End end, int status) {
    outcome.end = end;
    outcome.status = status;
    return true;
}

/// Waits for the worker's word that its output is whole, for its end, the deadline or a signal.
///
/// @return whether `outcome` says how it ended; else its exit status does.
bool watch(const Child& child, int signals, unsigned seconds, Messages& messages, bool& confined, Outcome& outcome) {
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(seconds);
    std::array<pollfd, 3> watched = {
        {{child.lifeline.get(), POLLIN, 0}, {signals, POLLIN, 0}, {child.messages.get(), POLLIN, 0}}};
    auto& [lifeline, signal, message] = watched;
    while (true) {
        const bool any = poll(watched.data(), watched.size(), millisecondsUntil(deadline)) > 0;
        signalfd_siginfo received = {};
        if (any && signal.revents != 0 && read(signals, &received, sizeof received) > 0) {
            return conclude(outcome, Outcome::End::interrupted, static_cast<int>(received.ssi_signo));
        }
        if (Clock::now() >= deadline) {
            return conclude(outcome, Outcome::End::deadline, static_cast<int>(seconds));
        }
        if (any && lifeline.revents != 0) {
            Word word = {};
            if (read(child.lifeline.get(), &word, 1) <= 0) {
                return false;
            }
            if (confined && word == Word::whole) {
                return conclude(outcome, Outcome::End::exited, EXIT_SUCCESS);
            }
            confined = confined || word == Word::confined;
        }
        if (any && message.revents != 0 && !messages.readFrom(child.messages.get())) {
            message.fd = -1;
        }
    }
}

/// Puts what the worker wrote on the disk. An empty output is a failed worker's.
int store(int output) {
    struct stat status = {};
    const bool stored = fstat(output, &status) == 0 && (status.st_size == 0 || fsync(output) == 0);
    return stored ? 0 : errno;
}

int reap(const Child& child) {
    int status = 0;
    while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

/// By the exit status of a worker that ended by itself.
void judge(int status, bool confined, Outcome& outcome) {
    if (confined && WIFEXITED(status)) {
        conclude(outcome, Outcome::End::exited, WEXITSTATUS(status));
    } else if (confined) {
        conclude(outcome, Outcome::End::killed, WTERMSIG(status));
    } else if (outcome.said.empty() && WIFSIGNALED(status)) {
        outcome.said = "it died of signal " + std::to_string(WTERMSIG(status));
    }
}

} // namespace

std::string Outcome::limit() const {
    if (end == End::deadline) {
        return "the time limit of " + std::to_string(status) + " s";
    }
    if (end == End::killed && status == SIGXCPU) {
        return "the limit of processor time";
    }
    return end == End::killed && status == SIGXFSZ ? "the limit of the picture's size" : "";
}

Outcome runWorker(const Worker& worker, int input, int output) {
    const sigset_t ending = endingSignals();
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    const Descriptor signals(signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK));
    const Child child = start(worker, input, output);
    Outcome outcome;
    if (child.pid < 0) {
        outcome.said = std::string("cannot start a process: ") + std::strerror(errno); // NOLINT(concurrency-mt-unsafe)
        return outcome;
    }
    Messages messages;
    bool confined = false;
    const bool known = watch(child, signals.get(), worker.deadlineSeconds, messages, confined, outcome);
    kill(child.pid, SIGKILL);
    if (!known || outcome.succeeded()) {
        outcome.storeError = store(output); // while the worker dies
    }
    const int status = reap(child);
    while (messages.readFrom(child.messages.get())) {
    }
    outcome.said = messages.asOneLine();
    if (!known) {
        judge(status, confined, outcome);
    }
    return outcome;
}

void prepareProcess() {
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
        descriptor = open("/dev/null", O_RDWR);
    }
    close(descriptor);
    std::signal(SIGCHLD, SIG_DFL); // NOLINT(cert-err33-c): cannot fail
    std::signal(SIGPIPE, SIG_IGN); // NOLINT(cert-err33-c): cannot fail
    prctl(PR_SET_PDEATHSIG, SIGTERM);
}
