#include "tests/programs/programRun.h"

// Cases stand side by side.
// clang-format off

namespace {

constexpr const char* kVolumeTool = "/usr/vexo/bin/vexofstool";
constexpr const char* kUserTool = "/usr/vexo/sbin/vexouser";

TEST(ServiceTools, answerByTheirExitStatus) {
    const std::string own = std::to_string(getuid()); // another's quota is told to root only
    // The last: 1 yes, 0 no, 2 no answer.
    for (const auto& [name, argv, status] : std::vector<std::tuple<const char*, std::vector<std::string>, int>>{
             {"writable", {kVolumeTool, "--check-volume-writable", "/srv/download"}, 1},
             {"mounted read-only", {kVolumeTool, "--check-volume-writable", "/usr/bin"}, 0},
             {"takes no files", {kVolumeTool, "--check-volume-writable", "/proc"}, 0},
             {"missing", {kVolumeTool, "--check-volume-writable", "/srv/none"}, 2},
             {"a file", {kVolumeTool, "--check-volume-writable", "/etc/passwd"}, 2},
             {"no directory", {kVolumeTool, "--check-volume-writable"}, 2},
             {"other option", {kVolumeTool, "--check", "/srv"}, 2},
             {"one too many", {kVolumeTool, "--check-volume-writable", "/srv", "/srv"}, 2},
             {"fits", {kUserTool, "--quota_check", own, "/srv", "1"}, 1},
             {"nothing fits always", {kUserTool, "--quota_check", own, "/srv", "0"}, 1},
             {"more than is free", {kUserTool, "--quota_check", own, "/srv", "18446744073709551615"}, 0},
             {"more than 64 bits", {kUserTool, "--quota_check", own, "/srv", "18446744073709551616"}, 2},
             {"negative", {kUserTool, "--quota_check", own, "/srv", "-1"}, 2},
             {"a sign", {kUserTool, "--quota_check", "+" + own, "/srv", "1"}, 2},
             {"a blank", {kUserTool, "--quota_check", own, "/srv", " 1"}, 2},
             {"a unit", {kUserTool, "--quota_check", own, "/srv", "1K"}, 2},
             {"no size", {kUserTool, "--quota_check", own, "/srv", ""}, 2},
             {"no such target", {kUserTool, "--quota_check", own, "/srv/none", "1"}, 2},
             {"too few", {kUserTool, "--quota_check", own, "/srv"}, 2},
             {"other option", {kUserTool, "--quota", "1000", "/srv", "1"}, 2}}) {
        const ProgramRun run = runProgram(argv);
        EXPECT_EQ(run.status, status) << name << run.errors;
        EXPECT_EQ(run.output, "") << name;
        EXPECT_EQ(run.errors.empty(), status != 2) << name;
    }
    EXPECT_TRUE(std::filesystem::is_empty("/srv/download"));
}

} // namespace
