#include "platform/process.h"
#include "host/process/childProcess.h"
#include "platform/processRunner.h"
#include "tests/host/caller.h"
#include "tests/host/sandbox.h"

#include <future>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <syslog.h>

namespace fs = std::filesystem;
using host::Keep;

namespace {

/// Adopts whatever a run leaves behind, so that one look at the children tells of zombies and strays alike.
struct ProcessTest : testing::Test {
    static long openDescriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }
    static int shell(const std::string& script) { return VLIBCExec("/bin/sh", "-c", script.c_str(), nullptr, nullptr); }

    ProcessTest() { prctl(PR_SET_CHILD_SUBREAPER, 1); }
    ~ProcessTest() override { expectNothingLeft(); }
    void expectNothingLeft() const {
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG | __WALL), -1) << "a process is left";
        EXPECT_EQ(openDescriptors(), descriptors);
    }
    const long descriptors = openDescriptors();
    const Sandbox sandbox;
};

std::string print(int expected, const char* path, const char* arg1, const char* arg2) {
    VEXOUtils::ProcessRunner runner(path, path, arg1, arg2, nullptr, "never", nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(runner.run(true, true), expected);
    return runner.getCapturedOutput();
}

TEST_F(ProcessTest, EndsWithWhateverTheChildDoes) {
    constexpr const char* kShell = "/bin/sh";
    // The last three: the result, how many bytes are kept, and whether these are all.
    const std::tuple<const char*, const char*, const char*, Keep, int, std::size_t, bool> cases[] = {
        {"missing", "/no/such", "", Keep::nothing, -ENOENT, 0, true},
        {"exits", kShell, "exit 255", Keep::nothing, 255, 0, true},
        {"killed", kShell, "kill -9 $$", Keep::nothing, -ECANCELED, 0, true},
        {"deaf", kShell, "trap '' TERM; sleep 1000; sleep 1000", Keep::outputAndErrors, -ETIME, 0, true},
        {"stopped", kShell, "kill -STOP $$", Keep::nothing, -ETIME, 0, true},
        {"prints, then fails", kShell, "printf half; printf x >&2; exit 3", Keep::outputAndErrors, 3, 4, true},
        {"complains", kShell, "printf half; printf x >&2; exit 3", Keep::errors, 3, 1, true},
        {"floods", kShell, "head -c 100M /dev/zero; head -c 100M /dev/zero >&2", Keep::nothing, 0, 0, true},
        {"floods what is kept", kShell, "head -c 100M /dev/zero", Keep::outputAndErrors, 0, host::kKeptBytes, false},
        {"prints all that is kept", kShell, "head -c 1M /dev/zero", Keep::outputAndErrors, 0, host::kKeptBytes, true},
        {"closes its output", kShell, "exec >&-; sleep 0.1; exit 4", Keep::outputAndErrors, 4, 0, true},
        {"leaves a child with its output", kShell, "sleep 1000 & printf done", Keep::outputAndErrors, 0, 4, true},
    };
    for (const auto& [name, path, script, keep, result, kept, whole] : cases) {
        const std::vector<const char*> argv = {"sh", "-c", script, nullptr};
        const auto deadline = result == -ETIME ? std::chrono::milliseconds(200) : host::kQuestionDeadline;
        const auto report = host::runChild(path, const_cast<char* const*>(argv.data()), keep, deadline);
        EXPECT_EQ(
            std::tuple(report.result, (keep == Keep::errors ? report.errors : report.output).size(), report.whole),
            std::tuple(result, kept, whole))
            << name;
        expectNothingLeft();
    }
}

enum CallerState : unsigned { closed = 1, crowded = 2, blocked = 4, interrupted = 8, ignoring = 16, reaping = 32 };

void enter(unsigned state) {
    while ((state & crowded) && dup(STDERR_FILENO) < 1000) {
    }
    if (state & closed) {
        close_range(0, 2, 0);
    }
    for (int number = 1; number < SIGRTMAX && (state & ignoring); ++number) {
        signal(number, SIG_IGN); // SIGCHLD among them
    }
    const itimerval often = {{0, 500}, {0, state & interrupted ? 500 : 0}};
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    setitimer(ITIMER_REAL, &often, nullptr);
    if (state & reaping) {
        std::thread([] {
            while (waitpid(-1, nullptr, 0) < 0) {
            }
            _exit(2); // for it has met a child, and the caller has none of its own
        }).detach();
    }
    sigset_t all;
    sigfillset(&all);
    sigprocmask(state & blocked ? SIG_SETMASK : SIG_UNBLOCK, &all, nullptr);
}

TEST_F(ProcessTest, TellsTheTruthInEveryCaller) {
    // The fourth descriptor that the shell sees is its own look at them.
    const char* const look = "tr '\\0' '\\n' </proc/$$/environ; ulimit -c;"
                             "readlink /proc/$$/fd/0; set -- /proc/$$/fd/*; echo $#;"
                             "test $(cut -d' ' -f5 /proc/$$/stat) = $$ && echo own group";
    const char* const seen = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\nLANG=C.UTF-8\n"
                             "0\n/dev/null\n4\nown group\n";
    const char* const defaults = "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n";
    for (unsigned state = 0; state < 2 * reaping; ++state) {
        SCOPED_TRACE(state);
        EXPECT_TRUE(inProcess([&] {
            enter(state);
            EXPECT_EQ(print(0, "/bin/sh", "-c", look), seen);
            EXPECT_EQ(print(0, "/bin/grep", "^Sig[BI]", "/proc/self/status"), defaults);
            EXPECT_EQ(shell("kill -9 $$"), -ECANCELED);
            onSmallStack([] {
                pthread_cancel(pthread_self());
                EXPECT_EQ(shell("exit 7"), 7);
            });
            return !HasFailure();
        }));
    }
}

/// With a limit of 1 process the launcher cannot start, with 2 the program cannot.
TEST_F(ProcessTest, TellsWhyItCannotStart) {
    EXPECT_TRUE(inProcess([] {
        const rlimit few = {3, 4096}; // descriptors: needed only where output is kept
        setrlimit(RLIMIT_NOFILE, &few);
        errno = EDOM;
        print(-EMFILE, "/bin/true", nullptr, nullptr);
        EXPECT_EQ(errno, EDOM);
        EXPECT_EQ(VLIBCExecv("/no/such", nullptr, 1), -ENOENT);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(shell("exit $(($(ulimit -n) == 1024))"), 1);
        int result = setuid(54321) == 0 ? -EAGAIN : 7; // only root becomes a user who has no other process
        for (rlimit processes = {1, 20}; result == -EAGAIN && processes.rlim_cur < 20; ++processes.rlim_cur) {
            setrlimit(RLIMIT_NPROC, &processes);
            result = shell("exit 7");
        }
        return result == 7 && !HasFailure();
    }));
}

TEST_F(ProcessTest, TakesItsChildrenAlongWhenKilled) {
    const std::string started = sandbox / "started";
    ASSERT_EQ(mkfifo(started.c_str(), 0600), 0);
    const pid_t caller = fork();
    if (caller == 0) {
        std::thread(pause).detach(); // its end, too, is told
        _exit(shell("setsid sleep 1000 & s=$!; trap 'kill $s; exit' TERM; sleep 1000 & echo >" + started + "; wait"));
    }
    std::ifstream(started).get(); // waits until it has
    kill(caller, SIGKILL);
    alarm(20);                                 // the child's own deadline, a minute, is too late
    while (waitpid(-1, nullptr, __WALL) > 0) { // comes to its end when they all have
    }
    alarm(0);
}

TEST_F(ProcessTest, LogsErrorsWhenAsked) {
    openlog("log", LOG_PERROR, LOG_USER);
    testing::internal::CaptureStderr();
    EXPECT_EQ(VLIBCExecl("/bin/sh", 0x3B, "-c", "echo no >&2; exit 2", nullptr), 2);
    EXPECT_EQ(VLIBCExecl("/bin/sh", 0x7B, "-c", "printf 'a\\033b\\n%%s\\n' >&2; exit 2", nullptr), 2);
    closelog();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "log: /bin/sh: a\\x1Bb\nlog: /bin/sh: %s\n");
}

TEST_F(ProcessTest, HandsArgumentsOnUnchanged) {
    const char* const printf = "/usr/bin/printf";
    VEXOUtils::ProcessRunner runner(printf, "printf", "[%s]", "a b", "", nullptr, "x", nullptr, nullptr, nullptr);
    runner.addArguments("*", "$HOME", "line\nbreak", "\xff", nullptr, "x", nullptr, nullptr, nullptr);
    for (const bool capture : {true, false}) {
        EXPECT_EQ(runner.run(capture, true), 0);
        EXPECT_EQ(runner.getCapturedOutput(), capture ? "[a b][][*][$HOME][line\nbreak][\xff]" : "");
    }
    print(-EMSGSIZE, "/bin/sh", "-c", "head -c 2M /dev/zero");
}

} // namespace
