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

/// Reads one output of a program.
///
/// The writing end stays open here as well: what counts as the end is the program's, not that of whoever holds the
/// pipe, and a program that closes its output early does not make the pipe report that for ever.
class Capture {
public:
    explicit Capture(ChildReport& report) : report_(report) {}

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

    /// Keeps what arrives until the launcher has ended, which is when `launcher` becomes readable.
    void readToEndOf(const Descriptor& launcher) {
        std::array<pollfd, 2> events = {{{launcher.get(), POLLIN, 0}, {readEnd_.get(), POLLIN, 0}}};
        while (events[0].revents == 0) {
            const long ready = rawCall(SYS_ppoll, address(events.data()), events.size());
            if (ready < 0 && ready != -EINTR) {
                return;
            }
            if (ready > 0 && events[1].revents != 0) {
                readSome(kPortion);
            }
        }
        readRest();
    }

private:
    static constexpr std::size_t kPortion = 8192;

    /// What the program has written is there by now; what somebody else may still write is not waited for.
    void readRest() {
        int left = 0;
        if (ioctl(readEnd_.get(), FIONREAD, &left) != 0) {
            report_.whole = false;
            return;
        }
        auto bytes = static_cast<std::size_t>(left);
        while (bytes > 0) {
            const std::size_t got = readSome(bytes);
            if (got == 0) {
                report_.whole = false;
                return;
            }
            bytes -= got;
        }
    }

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
        const std::size_t room = kKeptBytes - report_.kept.size();
        try {
            report_.kept.append(bytes, std::min(count, room));
            report_.whole = report_.whole && count <= room;
        } catch (const std::bad_alloc&) {
            report_.whole = false;
        }
    }

    ChildReport& report_;
    Descriptor readEnd_;
    Descriptor writeEnd_;
};

int resultOf(const LaunchOrder& order) {
    if (order.error != 0) {
        return -order.error;
    }
    return WIFEXITED(order.waitStatus) ? WEXITSTATUS(order.waitStatus) : -ECANCELED;
}

/// Waits by raw calls, as readToEnd(): errno may be the launcher's, and the order must outlive it.
///
/// @param capture  null: nothing is kept, and then no descriptor is used.
int runLauncher(LaunchOrder& order, Capture* capture) {
    int pidfd = -1;
    const pid_t launcher = startLauncher(order, capture != nullptr ? &pidfd : nullptr);
    if (launcher < 0) {
        return launcher;
    }
    if (capture != nullptr) {
        capture->readToEndOf(Descriptor(pidfd));
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
    if (keep == Keep::nothing) {
        report.result = runLauncher(order, nullptr);
        return report;
    }
    Capture capture(report);
    if (const int failure = capture.open(); failure != 0) {
        report.result = -failure;
        return report;
    }
    (keep == Keep::output ? order.output : order.errors) = capture.writeEnd();
    report.result = runLauncher(order, &capture);
    return report;
}

} // namespace host
