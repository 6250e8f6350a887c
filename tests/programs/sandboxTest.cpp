#include "programs/confinement/lifeline.h"
#include "programs/picture/worker.h"
#include "tests/host/caller.h"
#include "tests/programs/programRun.h"
#include "util/descriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <map>
#include <system_error>
#include <thread>

namespace {

std::string self;                   // the path of this program
pid_t stranger = 0;                 // a process outside, of the same user
alignas(4096) long space[512] = {}; // for what a system call reads and writes

bool startsAnother() {
    char* const words[] = {const_cast<char*>("/usr/bin/true"), nullptr};
    return execv(words[0], words) == 0;
}

bool getsMemory(int protection) {
    return mmap(nullptr, 1, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED;
}

/// What no worker may do; true when it could be done.
const std::pair<const char*, bool (*)()> kAttempts[] = {
    {"another program", startsAnother},
    {"a socket", [] { return socket(AF_INET, SOCK_STREAM, 0) >= 0; }},
    {"fork", [] { return fork() > 0; }},
    {"clone3", [] { return syscall(SYS_clone3, space, 64) > 0; }},
    {"a session of its own", [] { return setsid() >= 0; }},
    {"a signal to another", [] { return kill(stranger, 0) == 0; }},
    {"another's limits", [] { return syscall(SYS_prlimit64, stranger, RLIMIT_NOFILE, nullptr, space) == 0; }},
    {"a hold of another", [] { return syscall(SYS_pidfd_open, stranger, 0) >= 0; }},
    {"a descriptor's signals to another", [] { return fcntl(STDERR_FILENO, F_SETOWN, stranger) == 0; }},
    {"no end with its parent", [] { return prctl(PR_SET_PDEATHSIG, 0) == 0; }},
    {"namespaces", [] { return unshare(CLONE_NEWUSER) == 0; }},
    {"the system's files", [] { return open("/usr", O_RDONLY) >= 0; }},
    {"its own folder", [] { return open(".", O_RDONLY) >= 0; }},
    {"word of a file", [] { return access("/usr", F_OK) == 0; }},
    {"a new file", [] { return open(".", O_RDWR | O_TMPFILE, 0600) >= 0; }},
    {"memory made executable", [] { return mprotect(&space, 1, PROT_READ | PROT_WRITE | PROT_EXEC) == 0; }},
    {"memory to execute", [] { return getsMemory(PROT_READ | PROT_EXEC); }},
};

/// Runs as the worker: says what it could do and whether it could start a thread. The last attempt first: some change
/// what is possible.
int tryEverything(Liberty liberty) {
    std::string said = environ[0] != nullptr ? "an environment " : "";
    for (int number = 0; number < 64; ++number) {
        said += fcntl(number, F_GETFD) >= 0 ? std::to_string(number) + " " : "";
    }
    confineWorker(liberty);
    for (auto attempt = std::rbegin(kAttempts); attempt != std::rend(kAttempts); ++attempt) {
        said += attempt->second() ? attempt->first + ", "s : "";
    }
    try {
        std::thread([&] { said += getsMemory(PROT_READ) ? "thread" : "thread without memory"; }).join();
    } catch (const std::system_error&) {
    }
    return dprintf(STDERR_FILENO, "%s", said.c_str()) < 0 ? 1 : 0;
}

/// Stays for longer than its caller may, perhaps with its work done.
int stay(bool isDone) {
    confineWorker(Liberty::none);
    if (isDone && write(STDOUT_FILENO, "whole", 5) == 5) {
        tell(Word::whole);
    }
    for (volatile bool forever = true; forever;) { // a confined process cannot sleep
    }
    return 1;
}

/// What a worker says on its lifeline and as it ends is its own word.
int lie(Word first) {
    tell(first);
    dprintf(STDERR_FILENO, "bwrap: the time limit was reached");
    return 152;
}

int writeFarOut() {
    confineWorker(Liberty::none);
    return lseek(STDOUT_FILENO, 2 << 20, SEEK_SET) > 0 && write(STDOUT_FILENO, "", 1) == 1 ? 0 : 1;
}

const std::map<std::string, int (*)()> kActs = {
    {"reading", [] { return tryEverything(Liberty::none); }},
    {"threads", [] { return tryEverything(Liberty::threads); }},
    {"stay", [] { return stay(false); }},
    {"writeAndStay", [] { return stay(true); }},
    {"lieBefore", [] { return lie(Word::whole); }},
    {"lieAfter", [] { return lie(Word::confined); }},
    {"writeFarOut", writeFarOut},
};

Worker worker(const std::string& act) {
    Worker worker = {{self, act, std::to_string(getpid())}, {1 << 30, 10, 1 << 20}};
    worker.deadlineSeconds = 20;
    return worker;
}

Descriptor newFile() {
    return Descriptor(open(".", O_RDWR | O_TMPFILE | O_CLOEXEC, 0600));
}

Outcome run(const Worker& order, const Descriptor& output = newFile()) {
    const Descriptor input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    return runWorker(order, input.get(), output.get());
}

TEST(Sandbox, LeavesAWorkerItsDescriptorsAndPerhapsThreads) {
    const Descriptor inherited(dup(STDERR_FILENO));
    for (const auto& [act, said] : {std::pair("reading", "0 1 2 3"), std::pair("threads", "0 1 2 3 thread")}) {
        const Outcome outcome = run(worker(act));
        EXPECT_TRUE(outcome.succeeded()) << outcome.status;
        EXPECT_EQ(outcome.said, said);
    }
}

TEST(Sandbox, ClosesFilesTwiceAndTellsWhenItIsRefused) {
    EXPECT_TRUE(inProcess([] { return confine(Liberty::none) && !confine(Liberty::none); }));
    const auto isRefused = [] { return open("/usr", O_RDONLY) < 0 && errno == EACCES; };
    EXPECT_TRUE(inProcess([&] { return !closeFiles() || isRefused(); }));
    EXPECT_FALSE(isRefused());
}

/// Under trace: when they tell that they are confined they are, and have read nothing.
TEST(SandboxOutside, DecodersAreConfinedBeforeTheyRead) {
    for (const std::string decoder : {"frameDecoder", "jpegDecoder", "imageDecoder"}) {
        const pid_t pid = fork();
        if (pid == 0) {
            dup2(open("/dev/zero", O_RDONLY), STDIN_FILENO);
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            _exit(execl(("/usr/vexo/libexec/" + decoder).c_str(), "", decoder == "frameDecoder" ? "1" : nullptr,
                        nullptr));
        }
        __ptrace_syscall_info call = {};
        const auto enters = [&](unsigned long number) {
            return call.op == PTRACE_SYSCALL_INFO_ENTRY && call.entry.nr == number;
        };
        for (int status = 0; !enters(SYS_write) && waitpid(pid, &status, 0) == pid && WIFSTOPPED(status);) {
            ptrace(PTRACE_SETOPTIONS, pid, 0, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
            ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof call, &call);
            EXPECT_FALSE((enters(SYS_read) || enters(SYS_pread64)) && call.entry.args[0] == 0) << decoder;
            if (!enters(SYS_write)) {
                ptrace(PTRACE_SYSCALL, pid, 0, 0);
            }
        }
        EXPECT_EQ(call.entry.args[0], kLifeline) << decoder;
        EXPECT_NE(readFile("/proc/" + std::to_string(pid) + "/status").find("Seccomp:\t2"), std::string::npos)
            << decoder;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

TEST(SandboxOutside, AllOfThatCanBeDone) {
    stranger = getpid();
    for (const auto& [name, succeeds] : kAttempts) {
        EXPECT_TRUE(inProcess(succeeds)) << name;
    }
}

TEST(Sandbox, TellsByWhatItSaw) {
    using End = Outcome::End;
    EXPECT_EQ(run(worker("lieBefore")).end, End::notConfined);
    const Outcome after = run(worker("lieAfter"));
    EXPECT_EQ(after.end, End::exited);
    EXPECT_EQ(after.limit(), "");
    Worker none = worker("");
    none.argv[0] = "/none";
    EXPECT_EQ(run(none).end, End::notConfined);
    EXPECT_EQ(run(none).said, "/none: No such file or directory");
    Worker tooLarge = worker("reading");
    tooLarge.limits.addressSpaceBytes = 1 << 20;
    EXPECT_EQ(run(tooLarge).end, End::notConfined);
}

TEST(Sandbox, EndsAWorkerThatStays) {
    for (const bool isDone : {true, false}) {
        const Descriptor output = newFile();
        Worker order = worker(isDone ? "writeAndStay" : "stay");
        order.deadlineSeconds = isDone ? 20 : 1;
        const Outcome outcome = run(order, output);
        EXPECT_EQ(outcome.succeeded(), isDone);
        EXPECT_EQ(outcome.limit(), isDone ? "" : "the time limit of 1 s");
        EXPECT_EQ(lseek(output.get(), 0, SEEK_END), isDone ? 5 : 0);
    }
    Worker order = worker("stay");
    order.limits.processorSeconds = 1;
    EXPECT_EQ(run(order).limit(), "the limit of processor time");
    EXPECT_EQ(run(worker("writeFarOut")).limit(), "the limit of the picture's size");
}

/// A worker holds its output; here that is a pipe, which hangs up with the last who holds it.
TEST(Sandbox, DiesWithItsCallerAtAnyMoment) {
    for (int moment = 0; moment < 160; ++moment) {
        const int signal = moment % 2 == 0 ? SIGKILL : SIGTERM;
        int pipe[2] = {};
        ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
        const pid_t caller = fork();
        if (caller == 0) {
            runWorker(worker("stay"), pipe[0], pipe[1]);
            _exit(0);
        }
        close(pipe[1]);
        usleep(50U * static_cast<unsigned>(moment));
        kill(caller, signal);
        pollfd end = {pipe[0], 0, 0};
        EXPECT_EQ(poll(&end, 1, 5000), 1) << "signal " << signal << " at moment " << moment;
        kill(caller, SIGKILL);
        waitpid(caller, nullptr, 0);
        close(pipe[0]);
    }
}

/// As root and as nobody, where namespaces are refused, without /proc: a worker needs none of them.
TEST(SandboxOutside, HoldsInOtherPlaces) {
    for (const std::string user : {"0", "65534"}) {
        std::vector<std::string> argv =
            words("bwrap --unshare-user --disable-userns --ro-bind /usr /usr --symlink "
                  "usr/lib /lib --symlink usr/lib64 /lib64 --dev /dev --bind . /srv --chdir /srv");
        const std::vector<std::string> rest = {
            "--uid", user, "--ro-bind", self, "/test", "/test", "--gtest_filter=Sandbox.*"};
        argv.insert(argv.end(), rest.begin(), rest.end());
        const ProgramRun other = runProgram(argv);
        EXPECT_EQ(other.status, 0) << other.output << other.errors;
        EXPECT_NE(other.output.find("[  PASSED  ] 5 tests"), std::string::npos) << other.output;
    }
}

} // namespace

int main(int argc, char** argv) {
    self = argv[0];
    if (argc == 3) {
        stranger = std::stoi(argv[2]);
        return kActs.at(argv[1])();
    }
    prepareProcess();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
