#include "tests/programs/programRun.h"

namespace {

TEST(ServiceTools, AnswerByTheirExitStatus) {
    const std::string volume = "/usr/vexo/bin/vexofstool --check-volume-writable ";
    const std::string user = "/usr/vexo/sbin/vexouser --quota_check ";
    const std::string own = std::to_string(getuid()); // another's quota is told to root only
    const std::string quota = user + own + " /srv ";
    const std::pair<int, std::vector<std::string>> answers[] = {
        {1, {volume + "/srv/download", quota + "1", quota + "0"}},
        {0, {volume + "/usr/bin", volume + "/proc", quota + "18446744073709551615"}},
        // No answer: a folder that is missing or is none, a command line of another form, a size that is none.
        {2, {volume + "/srv/none", volume + "/etc/passwd", user + own + " /srv/none 1", volume, volume + "/srv /srv"}},
        {2, {quota, "/usr/vexo/bin/vexofstool --check /srv", "/usr/vexo/sbin/vexouser --quota 1000 /srv 1"}},
        {2, {quota + "18446744073709551616", quota + "-1", quota + "1K", user + "+" + own + " /srv 1"}},
    };
    for (const auto& [status, lines] : answers) {
        for (const std::string& line : lines) {
            const ProgramRun run = runProgram(words(line));
            EXPECT_EQ(run.status, status) << line << run.errors;
            EXPECT_EQ(run.output, "") << line;
            EXPECT_EQ(run.errors.empty(), status != 2) << line;
        }
    }
    EXPECT_EQ(runProgram({"/usr/vexo/sbin/vexouser", "--quota_check", own, "/srv", ""}).status, 2);
    EXPECT_TRUE(fs::is_empty("/srv/download"));
}

} // namespace
