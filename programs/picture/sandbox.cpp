#include "programs/picture/sandbox.h"

#include "programs/picture/sandboxFilter.h"
#include "util/descriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFirstSignal = 1;
constexpr int kLastSignal = 31;
constexpr int kSignalBase = 128;  // how the sandbox program passes on the signal that ended the worker
constexpr int kCannotStart = 127; // of the child, before the sandbox program ran
constexpr const char* kSandboxProgram = "/usr/bin/bwrap";
constexpr int kFilterDescriptor = kLifeline + 1; // read by the sandbox program, and closed

sigset_t endingSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&set, signal);
    }
    return set;
}

/// The namespaces are those of files: the system call filter does what others would. No /proc: a sandbox
/// inside another one is not allowed to mount it, and no worker needs it.
std::vector<std::string> sandboxArguments(const Worker& worker) {
    std::vector<std::string> arguments = {kSandboxProgram, "--unshare-user", "--cap-drop", "ALL", "--die-with-parent"};
    const auto add = [&](std::initializer_list<std::string> more) { arguments.insert(arguments.end(), more); };
    add({"--seccomp", std::to_string(kFilterDescriptor)});
    add({"--ro-bind", "/usr/lib", "/usr/lib", "--symlink", "usr/lib", "/lib", "--symlink", VEXODL_LIBRARIES, "/lib64"});
    add({"--ro-bind", worker.argv[0], worker.argv[0]});
    for (const std::string& path : worker.visible) {
        add({"--ro-bind-try", path, path});
    }
    add({"--chdir", "/", "--remount-ro", "/", "--"});
    arguments.insert(arguments.end(), worker.argv.begin(), worker.argv.end());
    return arguments;
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

bool limitResources(const Worker& worker) {
    const auto limit = [](__rlimit_resource resource, rlim_t soft, rlim_t hard) {
        const rlimit both = {soft, hard};
        return setrlimit(resource, &both) == 0;
    };
    const rlim_t seconds =
        worker.processorSeconds; // SIGXCPU tells which limit it was, SIGKILL at the hard one does not
    return limit(RLIMIT_AS, worker.addressSpaceBytes, worker.addressSpaceBytes) &&
           limit(RLIMIT_FSIZE, worker.outputBytes, worker.outputBytes) && limit(RLIMIT_CPU, seconds, seconds + 1) &&
           limit(RLIMIT_CORE, 0, 0);
}

/// Makes them the descriptors 0, 1, ... and closes all others.
bool placeDescriptors(std::vector<int> numbers) {
    const int count = static_cast<int>(numbers.size());
    for (int& number : numbers) {
        number = fcntl(number, F_DUPFD_CLOEXEC, count); // out of the way of those placed before it
    }
    for (int i = 0; i < count; ++i) {
        if (dup2(numbers[static_cast<std::size_t>(i)], i) < 0) {
            return false;
        }
    }
    return close_range(static_cast<unsigned>(count), ~0U, 0) == 0;
}

/// From here on the kernel kills this process group when nobody holds the reading end of that pipe any more. A signal
/// at the parent's death, which each process must ask for, would leave alone those that have just been started.
bool dieWithReaderOf(int pipe) {
    return fcntl(pipe, F_SETOWN, -getpgrp()) == 0 && fcntl(pipe, F_SETSIG, SIGKILL) == 0 &&
           fcntl(pipe, F_SETFL, O_ASYNC) == 0;
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
    Descriptor handle;
    Descriptor messages;
    Descriptor lifeline;
};

/// What becomes the worker. It leads a session and process group of its own, so it has no terminal to push input into.
[[noreturn]] void becomeWorker(const Worker& worker, const std::vector<int>& descriptors) {
    std::vector<std::string> arguments = VEXODL_BUBBLEWRAP ? sandboxArguments(worker) : worker.argv;
    std::vector<std::string> variables = worker.environment;
    const std::vector<char*> argv = pointers(arguments);
    const std::vector<char*> environment = pointers(variables);
    resetSignals();
    if (setsid() >= 0 && prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && dieWithReaderOf(descriptors[kLifeline]) &&
        limitResources(worker) && placeDescriptors(descriptors)) {
        execve(argv[0], argv.data(), environment.data());
        dprintf(STDERR_FILENO, "%s: %s\n", argv[0], std::strerror(errno)); // NOLINT(concurrency-mt-unsafe)
    }
    _exit(kCannotStart);
}

/// The filter is made while the child starts, which waits for it.
Child start(const Worker& worker, int input, int output) {
    Pipe messages = makePipe();
    Pipe lifeline = makePipe();
    Pipe filter = makePipe();
    if (!messages.writing || !lifeline.writing || !filter.writing) {
        return {};
    }
    std::vector<int> descriptors = {input, output, messages.writing.get(), lifeline.writing.get()};
    if (VEXODL_BUBBLEWRAP) {
        descriptors.push_back(filter.reading.get());
    }
    const pid_t pid = fork();
    if (pid == 0) {
        becomeWorker(worker, descriptors);
    }
    if (pid > 0 && VEXODL_BUBBLEWRAP && !writeSandboxFilter(filter.writing.get())) {
        kill(pid, SIGKILL);
    }
    fcntl(messages.reading.get(), F_SETFL, O_NONBLOCK);
    Descriptor handle(pid > 0 ? static_cast<int>(syscall(SYS_pidfd_open, pid, 0)) : -1);
    return {pid, std::move(handle), std::move(messages.reading), std::move(lifeline.reading)};
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

/// Waits for the worker's word that its output is whole, the child's end, the deadline or a signal.
///
/// @return whether `outcome` says how it ended; else the child's exit status does.
bool watch(const Child& child, int signals, unsigned seconds, Messages& messages, Outcome& outcome) {
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(seconds);
    std::array<pollfd, 4> watched = {{{child.handle.get(), POLLIN, 0},
                                      {signals, POLLIN, 0},
                                      {child.messages.get(), POLLIN, 0},
                                      {child.lifeline.get(), POLLIN, 0}}};
    auto& [ended, signal, message, lifeline] = watched;
    while (ended.revents == 0) {
        const bool any = poll(watched.data(), watched.size(), millisecondsUntil(deadline)) > 0;
        signalfd_siginfo received = {};
        if (any && signal.revents != 0 && read(signals, &received, sizeof received) > 0) {
            return conclude(outcome, Outcome::End::interrupted, static_cast<int>(received.ssi_signo));
        }
        if (Clock::now() >= deadline) {
            return conclude(outcome, Outcome::End::deadline, static_cast<int>(seconds));
        }
        if (any && (lifeline.revents & POLLIN) != 0) {
            return conclude(outcome, Outcome::End::exited, EXIT_SUCCESS);
        }
        if (any && lifeline.revents != 0) {
            lifeline.fd = -1;
        }
        if (any && message.revents != 0 && !messages.readFrom(child.messages.get())) {
            message.fd = -1;
        }
    }
    return false;
}

/// Puts what the worker wrote on the disk. An empty output is a failed worker's.
int store(int output) {
    struct stat status = {};
    const bool stored = fstat(output, &status) == 0 && (status.st_size == 0 || fsync(output) == 0);
    return stored ? 0 : errno;
}

/// To be called while the number is still the group's: before the child is reaped. A child that has just been forked
/// leads no group yet.
void killAll(const Child& child) {
    kill(child.pid, SIGKILL);
    kill(-child.pid, SIGKILL);
}

/// Every process of the worker holds the lifeline until it can write no more.
void awaitSilence(const Child& child) {
    pollfd lifeline = {child.lifeline.get(), 0, 0};
    while (poll(&lifeline, 1, -1) < 0 && errno == EINTR) {
    }
}

int reap(const Child& child) {
    int status = 0;
    while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

void judge(int status, Outcome& outcome) {
    const int exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
    const bool neverStarted =
        exitStatus == kCannotStart || (exitStatus == 1 && outcome.said.compare(0, 7, "bwrap: ") == 0);
    if (neverStarted) {
        outcome.end = Outcome::End::noSandbox;
    } else if (exitStatus > kSignalBase) {
        outcome.end = Outcome::End::killed;
        outcome.status = exitStatus - kSignalBase;
    } else {
        outcome.end = Outcome::End::exited;
        outcome.status = exitStatus;
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

Outcome runSandboxed(const Worker& worker, int input, int output) {
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
    const bool known = watch(child, signals.get(), worker.deadlineSeconds, messages, outcome);
    killAll(child);
    if (!known || outcome.succeeded()) {
        outcome.storeError = store(output); // while the processes of the sandbox die
        awaitSilence(child);
    }
    const int status = reap(child);
    while (messages.readFrom(child.messages.get())) {
    }
    outcome.said = messages.asOneLine();
    if (!known) {
        judge(status, outcome);
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
