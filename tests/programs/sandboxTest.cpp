#include "programs/picture/sandbox.h"
#include "tests/host/caller.h"
#include "tests/programs/programRun.h"
#include "util/descriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>

namespace {

pid_t stranger = 0;  // a process outside, of the same user
long space[16] = {}; // for what a system call reads and writes

/// What no worker may do; true when it could be done.
const std::pair<const char*, bool (*)()> kAttempts[] = {
    {"a socket", [] { return socket(AF_INET, SOCK_STREAM, 0) >= 0; }},
    {"fork", [] { return fork() > 0; }},
    {"clone3", [] { return syscall(SYS_clone3, space, 64) > 0; }},
    {"a session of its own", [] { return setsid() >= 0; }},
    {"a signal to another", [] { return kill(stranger, 0) == 0; }},
    {"another's limits", [] { return syscall(SYS_prlimit64, stranger, RLIMIT_NOFILE, nullptr, space) == 0; }},
    {"a descriptor's signals to another", [] { return fcntl(STDERR_FILENO, F_SETOWN, stranger) == 0; }},
    {"no end with its parent", [] { return prctl(PR_SET_PDEATHSIG, 0) == 0; }},
    {"namespaces", [] { return unshare(CLONE_NEWUSER) == 0; }},
    {"the system's files", [] { return open("/etc/passwd", O_RDONLY) >= 0; }},
    {"the tasks", [] { return open("/srv/download", O_RDONLY) >= 0; }},
    {"processes", [] { return open("/proc/self/status", O_RDONLY) >= 0; }},
    {"a new file", [] { return creat("new", 0600) >= 0; }},
};

/// Runs as the worker: says what it could do, what it holds, and whether it could start a thread. The last attempt
/// first: some change what is possible.
int tryEverything() {
    std::string said;
    for (auto attempt = std::rbegin(kAttempts); attempt != std::rend(kAttempts); ++attempt) {
        said += attempt->second() ? attempt->first + ", "s : "";
    }
    for (int number = 0; number < 64; ++number) {
        said += fcntl(number, F_GETFD) >= 0 ? std::to_string(number) + " " : "";
    }
    std::thread([&] { said += "thread"; }).join();
    return dprintf(STDERR_FILENO, "%s", said.c_str()) < 0 ? 1 : 0;
}

Worker worker(const std::string& act) {
    Worker worker;
    worker.argv = {std::filesystem::canonical("/proc/self/exe"), act, std::to_string(getpid())};
    worker.deadlineSeconds = 20;
    return worker;
}

const auto newFile = [] { return Descriptor(open("/srv", O_RDWR | O_TMPFILE | O_CLOEXEC, 0600)); };

TEST(Sandbox, LeavesAWorkerItsDescriptorsAndThreads) {
    stranger = getpid();
    const Descriptor input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const Outcome outcome = runSandboxed(worker("tryEverything"), input.get(), newFile().get());
    EXPECT_TRUE(outcome.succeeded()) << outcome.status;
    EXPECT_EQ(outcome.said, "0 1 2 3 thread");
    for (const auto& [name, succeeds] : kAttempts) {
        EXPECT_TRUE(inProcess(succeeds)) << name << " cannot be done without the sandbox either";
    }
}

TEST(Sandbox, EndsAWorkerThatStays) {
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
TEST(Sandbox, DiesWithItsCallerAtAnyMoment) {
    for (int moment = 0; moment < 160; ++moment) {
        const int signal = moment % 2 == 0 ? SIGKILL : SIGTERM;
        int pipe[2] = {};
        ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
        const pid_t caller = fork();
        if (caller == 0) {
            runSandboxed(worker("stay"), pipe[0], pipe[1]);
            _exit(0);
        }
        close(pipe[1]);
        usleep(75U * static_cast<unsigned>(moment));
        kill(caller, signal);
        pollfd end = {pipe[0], 0, 0};
        EXPECT_EQ(poll(&end, 1, 5000), 1) << "signal " << signal << " at moment " << moment;
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
    if (argc == 3) {
        stranger = std::stoi(argv[2]);
        return argv[1] == "tryEverything"s ? tryEverything() : stay(argv[1] == "writeAndStay"s);
    }
    prepareProcess();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
