#include "programs/picture/sandbox.h"
#include "tests/host/caller.h"
#include "tests/programs/programRun.h"
#include "util/descriptor.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <array>
#include <csignal>
#include <thread>

// Cases stand side by side.
// clang-format off

namespace {

pid_t stranger = 0; // a process outside, of the same user

bool opens(const char* path, int flags) { return open(path, flags, 0600) >= 0; }
bool forked(long pid) {
    if (pid == 0) { _exit(0); }
    return pid > 0;
}

/// What no worker may do; true when it could be done.
struct Attempt { const char* name; bool (*succeeds)(); };
constexpr std::array kAttempts = {
    Attempt{"a socket", [] { return socket(AF_INET, SOCK_STREAM, 0) >= 0; }},
    Attempt{"a pair of sockets", [] { std::array<int, 2> ends = {}; return socketpair(AF_UNIX, SOCK_DGRAM, 0, ends.data()) == 0; }},
    Attempt{"a ring", [] { std::array<char, 120> ring = {}; return syscall(SYS_io_uring_setup, 1, ring.data()) >= 0; }},
    Attempt{"fork", [] { return forked(fork()); }},
    Attempt{"clone3", [] { std::array<std::uint64_t, 8> order = {}; return forked(syscall(SYS_clone3, order.data(), sizeof order)); }},
    Attempt{"a session of its own", [] { return setsid() >= 0; }},
    Attempt{"a signal to another", [] { return kill(stranger, 0) == 0; }},
    Attempt{"another's limits", [] { rlimit limit = {}; return prlimit(stranger, RLIMIT_NOFILE, nullptr, &limit) == 0; }},
    Attempt{"a descriptor's signals to another", [] { return fcntl(STDERR_FILENO, F_SETOWN, stranger) == 0; }},
    Attempt{"no end with its parent", [] { return prctl(PR_SET_PDEATHSIG, 0) == 0; }},
    Attempt{"shared memory", [] { return shmget(IPC_PRIVATE, 1, 0600) >= 0; }},
    Attempt{"namespaces", [] { return unshare(CLONE_NEWUSER) == 0; }},
    Attempt{"the system's files", [] { return opens("/etc/passwd", O_RDONLY); }},
    Attempt{"the tasks", [] { return opens("/srv/download", O_RDONLY); }},
    Attempt{"processes", [] { return opens("/proc/self/status", O_RDONLY); }},
    Attempt{"a new file", [] { return opens("new", O_WRONLY | O_CREAT); }},
};

/// Runs as the worker: says what it could do, what it holds, and whether it could start a thread. The last attempt
/// first: some change what is possible.
int tryEverything() {
    for (auto attempt = kAttempts.rbegin(); attempt != kAttempts.rend(); ++attempt) {
        if (attempt->succeeds()) { dprintf(STDERR_FILENO, "%s\n", attempt->name); }
    }
    for (int number = 0; number < 64; ++number) {
        if (fcntl(number, F_GETFD) >= 0) { dprintf(STDERR_FILENO, "%d ", number); }
    }
    std::thread([] { dprintf(STDERR_FILENO, "thread"); }).join();
    return 0;
}

Worker worker(const std::string& act) {
    Worker worker;
    worker.argv = {std::filesystem::canonical("/proc/self/exe"), act, std::to_string(getpid())};
    worker.deadlineSeconds = 20;
    return worker;
}

Descriptor newFile() { return Descriptor(open("/srv", O_RDWR | O_TMPFILE | O_CLOEXEC, 0600)); }

TEST(Sandbox, leavesAWorkerItsDescriptorsAndThreads) {
    stranger = getpid();
    const Descriptor input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const Outcome outcome = runSandboxed(worker("tryEverything"), input.get(), newFile().get());
    EXPECT_TRUE(outcome.succeeded()) << outcome.status;
    EXPECT_EQ(outcome.said, "0 1 2 3 thread");
    for (const Attempt& attempt : kAttempts) {
        EXPECT_TRUE(inProcess(attempt.succeeds)) << attempt.name << " cannot be done without the sandbox either";
    }
}

TEST(Sandbox, endsAWorkerThatStays) {
    const Descriptor input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    for (const bool isDone : {true, false}) {
        const Descriptor output = newFile();
        Worker order = worker(isDone ? "writeAndStay" : "stay");
        order.deadlineSeconds = isDone ? 20 : 1;
        const Outcome outcome = runSandboxed(order, input.get(), output.get());
        EXPECT_EQ(outcome.succeeded(), isDone);
        EXPECT_EQ(outcome.limit(), isDone ? "" : "the time limit of 1 s");
        EXPECT_EQ(lseek(output.get(), 0, SEEK_END), isDone ? 5 : 0);
    }
}

/// Every process of a sandbox holds its output; here that is a pipe, which hangs up with the last of them.
TEST(Sandbox, diesWithItsCallerAtAnyMoment) {
    for (int moment = 0; moment < 160; ++moment) {
        const int signal = moment % 2 == 0 ? SIGKILL : SIGTERM;
        const std::chrono::microseconds delay(75 * moment);
        std::array<int, 2> pipe = {};
        ASSERT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
        const pid_t caller = fork();
        if (caller == 0) {
            runSandboxed(worker("stay"), pipe[0], pipe[1]);
            _exit(0);
        }
        close(pipe[1]);
        std::this_thread::sleep_for(delay);
        kill(caller, signal);
        pollfd end = {pipe[0], 0, 0};
        EXPECT_EQ(poll(&end, 1, 5000), 1) << "signal " << signal << " after " << delay.count() << " us";
        kill(caller, SIGKILL);
        waitpid(caller, nullptr, 0);
        close(pipe[0]);
    }
}

/// Stays for longer than its caller may, perhaps with its work done.
int stay(bool isDone) {
    const bool told = isDone && write(STDOUT_FILENO, "whole", 5) == 5 && write(kLifeline, "", 1) == 1;
    std::this_thread::sleep_for(std::chrono::seconds(told == isDone ? 30 : 0));
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    const std::string act = argc == 3 ? argv[1] : "";
    if (act.empty()) {
        prepareProcess();
        testing::InitGoogleTest(&argc, argv);
        return RUN_ALL_TESTS();
    }
    stranger = std::stoi(argv[2]);
    return act == "tryEverything" ? tryEverything() : stay(act == "writeAndStay");
}
