#include "tests/programs/programRun.h"

namespace {

ProgramRun duration(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "/var/packages/Quellbox/target/bin/vexodlgetduration");
    return runProgram(std::move(arguments));
}

const auto expected = [](long seconds) { return "{\"duration\": " + std::to_string(seconds) + "}\n"; };

/// For the streams without a container, which tell none, it is counted.
TEST(Duration, IsTheWholeSecondsThatFfprobeTells) {
    shell("rm samples/cover.jpg");
    for (const auto& entry : fs::directory_iterator("samples")) {
        const std::string file = entry.path();
        const ProgramRun probe =
            runProgram(words("ffprobe -v error -show_entries format=duration -of csv=p=0 " + file));
        const ProgramRun run = duration({"--path", file, "--debug_mode"});
        EXPECT_EQ(run.output, expected(probe.output == "N/A\n" ? 15 : std::stol(probe.output))) << file << run.errors;
    }
}

TEST(Duration, IsTakenFromTheHeaderOfAnUnfinishedFile) {
    const std::pair<std::string, std::string> films[] = {
        {"-c copy -movflags faststart h.mp4 && head -c 40000 h.mp4 > cut.part", expected(15)},
        {"-c copy h.mkv && head -c 40000 h.mkv > cut.part && truncate -r h.mkv cut.part", expected(15)},
        {"-c copy t.mp4 && head -c 40000 t.mp4 > cut.part", ""},
        {"-t 0.4 -c:v libx264 -an short.mp4 && mv short.mp4 cut.part", expected(1)},
    };
    for (const auto& [make, output] : films) {
        shell("ffmpeg -v error -i samples/short.mp4 " + make);
        const ProgramRun run = duration({"--path", "cut.part"});
        EXPECT_EQ(run.output, output) << make << run.errors;
        EXPECT_EQ(run.status, output.empty() ? 1 : 0) << make;
    }
}

/// Limits that files reach: the index of one claims 64 million frames, the other begins, and then it is one hole.
TEST(Duration, EndsAtItsLimits) {
    shell("ffmpeg -v error -f lavfi -i color=s=16x16:d=1 -c:v rawvideo -pix_fmt rgb24 index.mov");
    shell("ffmpeg -v error -i samples/short.mp4 -c copy -live 1 l.mkv && head -c 20000 l.mkv >hole.mkv && "
          "truncate -s 100G hole.mkv");
    std::string index = readFile("index.mov");
    const std::tuple<const char*, std::size_t, char> claims[] = {
        {"stsz", 12, 4}, {"stts", 12, 4}, {"stsc", 16, 4}, {"mvhd", 20, 0}, {"mdhd", 20, 0}};
    for (const auto& [box, offset, highest] : claims) {
        index.replace(index.find(box) + offset, 4, {highest, '\0', '\0', '\0'});
    }
    writeFile("index.mov", index);
    for (const auto& [file, limit] :
         {std::pair("index.mov", "memory limit"), {"hole.mkv", "limit of processor time"}}) {
        const ProgramRun run = duration({"--path", file});
        EXPECT_EQ(run.status, 6) << file;
        EXPECT_EQ(run.errors, "vexodlgetduration: "s + file + ": the " + limit + " was reached\n");
        EXPECT_LT(run.peakBytes, 256L << 20) << file;
    }
}

/// A name of either root is a task's.
TEST(Duration, OpensNothingButARegularFileOfTheTask) {
    shell("cd download && mkdir -p 7/sub 8 && cp ../samples/short.mp4 8/secret.mp4 && cp 8/secret.mp4 7/own.mp4 && "
          "cd 7 && mkfifo fifo && ln -s ../8/secret.mp4 out && ln -s own.mp4 in && ln -s ../../8 sub/dir");
    for (const auto& [file, status] : {std::pair("in", 0), {"out", 3}, {"sub/dir/secret.mp4", 3}, {"fifo", 3}}) {
        for (const std::string root : {"/srv/download/7/", "/var/services/download/7/"}) {
            const ProgramRun run = duration({"--path", root + file});
            EXPECT_EQ(run.status, status) << root << file << run.errors;
            EXPECT_EQ(run.output, status == 0 ? expected(15) : "") << root << file;
        }
    }
}

TEST(Duration, WantsItsCommandLine) {
    for (const char* line : {"", "--path", "base.mp4", "--path base.mp4 --debug", "--path base.mp4 --debug_mode x"}) {
        const ProgramRun run = duration(words(line));
        EXPECT_EQ(run.status, 2) << line;
        EXPECT_EQ(run.output + run.errors, "usage: vexodlgetduration --path FILE [--debug_mode]\n");
    }
}

} // namespace
