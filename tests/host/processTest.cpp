#include "host/childProcess.h"
#include "tests/host/sandbox.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include <sys/prctl.h>
#include <sys/wait.h>

namespace fs = std::filesystem;
using host::Keep;

namespace {

long openDescriptors() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

/// Adopts whatever a run leaves behind, so that one look at the children tells of zombies and strays alike.
struct ProcessTest : testing::Test {
    ProcessTest() { prctl(PR_SET_CHILD_SUBREAPER, 1); }
    ~ProcessTest() override { expectNothingLeft(); }
    void expectNothingLeft() const {
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG | __WALL), -1) << "a process is left";
        EXPECT_EQ(openDescriptors(), descriptors);
    }
    const long descriptors = openDescriptors();
    const Sandbox sandbox;
};

TEST_F(ProcessTest, endsWithWhateverTheChildDoes) {
    constexpr const char* kShell = "/bin/sh";
    // clang-format off
    const struct { const char *name, *path, *script; Keep keep; int result; std::size_t kept; bool whole = true; } cases[] = {
        {"missing", "/no/such", "", Keep::nothing, -ENOENT, 0}, {"not executable", "/etc/passwd", "", Keep::output, -EACCES, 0},
        {"no name", nullptr, "", Keep::nothing, -EFAULT, 0}, {"exits", kShell, "exit 255", Keep::nothing, 255, 0},
        {"killed", kShell, "kill -9 $$", Keep::nothing, -ECANCELED, 0},
        {"deaf", kShell, "trap '' TERM; sleep 1000; sleep 1000", Keep::output, -ETIME, 0},
        {"stopped", kShell, "kill -STOP $$", Keep::nothing, -ETIME, 0}, {"silent", kShell, ":", Keep::output, 0, 0},
        {"prints, then fails", kShell, "printf half; printf x >&2; exit 3", Keep::output, 3, 4},
        {"complains", kShell, "printf half; printf x >&2; exit 3", Keep::errors, 3, 1},
        {"floods", kShell, "head -c 100M /dev/zero; head -c 100M /dev/zero >&2", Keep::nothing, 0, 0},
        {"floods what is kept", kShell, "head -c 100M /dev/zero", Keep::output, 0, host::kKeptBytes, false},
        {"prints all that is kept", kShell, "head -c 1M /dev/zero", Keep::output, 0, host::kKeptBytes},
        {"closes its output", kShell, "exec >&-; sleep 0.1; exit 4", Keep::output, 4, 0},
        {"leaves a child with its output", kShell, "sleep 1000 & printf done", Keep::output, 0, 4}};
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<const char*> argv = {"sh", "-c", c.script, nullptr};
        const auto deadline = c.result == -ETIME ? std::chrono::milliseconds(200) : host::kQuestionDeadline;
        const auto report = host::runChild(c.path, const_cast<char* const*>(argv.data()), c.keep, deadline);
        EXPECT_EQ(std::tie(report.result, report.whole), std::tie(c.result, c.whole));
        EXPECT_EQ(report.kept.size(), c.kept);
        expectNothingLeft();
    }
}

} // namespace
