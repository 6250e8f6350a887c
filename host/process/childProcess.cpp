#include "host/process/childProcess.h"

#include "host/process/launcher.h"
#include "host/process/rawSystemCall.h"
#include "util/cancellation.h"
#include "util/descriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host {
namespace {

/// The caller's errno and cancellation as they were before.
class CallerState {
public:
    CallerState() = default;
    ~CallerState() { errno = errno_; }
    CallerState(const CallerState&) = delete;
    CallerState& operator=(const CallerState&) = delete;

private:
    int errno_ = errno;
    CancellationBlock cancellation_;
};

/// Away from 0, 1 and 2, where the child's own will be. @return 0 or an errno.
int moveUp(Descriptor& descriptor) {
    if (descriptor.get() > STDERR_FILENO) {
        return 0;
    }
    Descriptor high(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!high) {
        return errno;
    }
    descriptor = std::move(high);
    return 0;
}

/// Reads one output of a program into a text.
///
/// The writing end stays open here as well: what counts as the end is the program's, not that of whoever holds the
/// pipe, and a program that closes its output early does not make the pipe report that for ever.
class Capture {
public:
    explicit Capture(std::string& kept) : kept_(kept) {}

    /// @return 0 or an errno.
    int open() {
        std::array<int, 2> ends = {-1, -1};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            return errno;
        }
        readEnd_ = Descriptor(ends[0]);
        writeEnd_ = Descriptor(ends[1]);
        const int failure = moveUp(readEnd_);
        return failure != 0 ? failure : moveUp(writeEnd_);
    }

    int writeEnd() const { return writeEnd_.get(); }

    /// False: more was printed than is kept.
    bool isWhole() const { return whole_; }

    /// To be polled; without a descriptor where open() was not called or failed.
    pollfd event() const { return {readEnd_.get(), POLLIN, 0}; }

    /// Reads some of the bytes that are there. @return how many.
    std::size_t readSome() { return readSome(kPortion); }

    /// What the program has written is there by now; what somebody else may still write is not waited for.
    void readRest() {
        int left = 0;
        if (!readEnd_ || ioctl(readEnd_.get(), FIONREAD, &left) != 0) {
            whole_ = false;
            return;
        }
        auto bytes = static_cast<std::size_t>(left);
        while (bytes > 0) {
            const std::size_t got = readSome(bytes);
            if (got == 0) {
                whole_ = false;
                return;
            }
            bytes -= got;
        }
    }

private:
    static constexpr std::size_t kPortion = 8192;

    /// Reads at most so many bytes of those that are there. @return how many.
    std::size_t readSome(std::size_t most) {
        std::array<char, kPortion> portion;
        const ssize_t got = read(readEnd_.get(), portion.data(), std::min(most, portion.size()));
        if (got < 0) {
            return 0;
        }
        keep(portion.data(), static_cast<std::size_t>(got));
        return static_cast<std::size_t>(got);
    }

    void keep(const char* bytes, std::size_t count) {
        const std::size_t room = kKeptBytes - kept_.size();
        try {
            kept_.append(bytes, std::min(count, room));
            whole_ = whole_ && count <= room;
        } catch (const std::bad_alloc&) {
            whole_ = false;
        }
    }

    std::string& kept_;
    bool whole_ = true;
    Descriptor readEnd_;
    Descriptor writeEnd_;
};

/// Keeps what arrives until the launcher has ended, which is when `launcher` becomes readable.
void readToEndOf(const Descriptor& launcher, std::array<Capture*, 2> captures) {
    std::array<pollfd, 3> events = {{{launcher.get(), POLLIN, 0}, captures[0]->event(), captures[1]->event()}};
    while (events[0].revents == 0) {
        const long ready = rawCall(SYS_ppoll, address(events.data()), events.size());
        if (ready < 0 && ready != -EINTR) {
            break;
        }
        for (std::size_t index = 0; ready > 0 && index < captures.size(); ++index) {
            if (events[index + 1].revents != 0) {
                captures[index]->readSome();
            }
        }
    }
    for (Capture* capture : captures) {
        capture->readRest();
    }
}

int resultOf(const LaunchOrder& order) {
    if (order.error != 0) {
        return -order.error;
    }
    return WIFEXITED(order.waitStatus) ? WEXITSTATUS(order.waitStatus) : -ECANCELED;
}

/// Waits by raw calls: errno may be the launcher's, and the order must outlive it.
///
/// @param read  called with what becomes readable when the launcher has ended; null: no descriptor is used.
template <typename Read>
int runLauncher(LaunchOrder& order, const Read* read) {
    int pidfd = -1;
    const pid_t launcher = startLauncher(order, read != nullptr ? &pidfd : nullptr);
    if (launcher < 0) {
        return launcher;
    }
    if (read != nullptr) {
        (*read)(Descriptor(pidfd));
    }
    while (rawCall(SYS_wait4, launcher, 0, __WALL) == -EINTR) {
    }
    return resultOf(order);
}

} // namespace

ChildReport runChild(const char* path, char* const* argv, Keep keep, std::chrono::nanoseconds deadline) noexcept {
    static constexpr std::array<const char*, 3> kEnvironment = {
        "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "LANG=C.UTF-8", nullptr};
    const CallerState state;
    ChildReport report;
    LaunchOrder order;
    order.path = path;
    order.argv = argv;
    order.environment = const_cast<char* const*>(kEnvironment.data()); // execve's type; it changes nothing
    order.nanoseconds = deadline.count();
    order.caller = getpid();
    order.callerErrno = &errno;
    Capture output(report.output);
    Capture errors(report.errors);
    const auto read = [&](const Descriptor& launcher) { readToEndOf(launcher, {&output, &errors}); };
    if (keep == Keep::outputAndErrors) {
        if (const int failure = output.open(); failure != 0) {
            report.result = -failure;
            return report;
        }
        order.output = output.writeEnd();
    }
    if (keep != Keep::nothing && errors.open() == 0) {
        order.errors = errors.writeEnd();
    }
    const bool reads = order.output >= 0 || order.errors >= 0;
    report.result = runLauncher(order, reads ? &read : nullptr);
    report.whole = keep != Keep::outputAndErrors || output.isWhole();
    return report;
}

} // namespace host
