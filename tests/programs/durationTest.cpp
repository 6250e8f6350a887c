#include "tests/programs/programRun.h"

// Cases stand side by side.
// clang-format off

namespace {

ProgramRun duration(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "/var/packages/Quellbox/target/bin/vexodlgetduration");
    return runProgram(std::move(arguments));
}

std::string expected(long seconds) {
    return "{\"duration\": " + std::to_string(seconds) + "}\n";
}

/// Samples of 21.4 seconds; the sound is a little longer than the picture.
struct Duration : testing::Test {
    static void SetUpTestSuite() {
        shell("ffmpeg -v error -f lavfi -i testsrc2=s=176x144:r=10:d=21.4 -f lavfi -i sine=d=21.44 -c:v libx264 -g 20 "
              "-preset ultrafast -c:a aac base.mp4");
    }
};

TEST_F(Duration, isTheWholeSecondsThatFfprobeTells) {
    for (const auto& [file, encode] : std::vector<std::pair<const char*, std::string>>{
             {"a.mp4", "-c copy"}, {"front.mp4", "-c copy -movflags faststart"}, {"a.mkv", "-c copy"}, {"a.flv", "-c copy"},
             {"a.ts", "-c copy"}, {"fragments.mp4", "-c copy -movflags frag_keyframe+empty_moov"},
             {"a.webm", "-c:v libvpx -deadline realtime -cpu-used 8 -c:a libopus"}, {"a.avi", "-c:v mpeg4 -c:a mp3"},
             {"a.mpg", "-c:v mpeg2video -c:a mp2"}, {"a.wmv", "-c:v wmv2 -c:a wmav2"},
             {"a.ogv", "-c:v libtheora -c:a libvorbis"}}) {
        shell("ffmpeg -v error -i base.mp4 " + encode + " " + file);
        const ProgramRun probe =
            runProgram({"ffprobe", "-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", file});
        const ProgramRun run = duration({"--path", file, "--debug_mode"});
        EXPECT_EQ(run.output, expected(std::stol(probe.output))) << file << run.errors;
    }
}

TEST_F(Duration, isTakenFromTheHeaderOfAnUnfinishedFile) {
    for (const auto& [make, output] : std::vector<std::pair<std::string, std::string>>{
             {"-c copy -movflags faststart h.mp4 && head -c 40000 h.mp4 > cut.part", expected(21)},
             {"-c copy h.mkv && head -c 40000 h.mkv > cut.part && truncate -r h.mkv cut.part", expected(21)},
             {"-c copy t.mp4 && head -c 40000 t.mp4 > cut.part", ""},
             {"-t 0.4 -c:v libx264 -an short.mp4 && mv short.mp4 cut.part", expected(1)}}) {
        shell("ffmpeg -v error -i base.mp4 " + make);
        const ProgramRun run = duration({"--path", "cut.part"});
        EXPECT_EQ(run.output, output) << make << run.errors;
        EXPECT_EQ(run.status, output.empty() ? 1 : 0) << make;
    }
}

TEST_F(Duration, opensNothingButTheOneRegularFile) {
    shell("mkdir -p download/7/sub download/8 && cp base.mp4 download/8/secret.mp4 && cp base.mp4 download/7/own.mp4 "
          "&& cd download/7 && mkfifo fifo && ln -s ../8/secret.mp4 out && ln -s own.mp4 in && ln -s /srv/download/8 sub/dir && "
          "printf '#EXTM3U\\n#EXT-X-TARGETDURATION:60\\n#EXTINF:60,\\n/srv/base.mp4\\n#EXT-X-ENDLIST\\n' > hls.mp4 && "
          "printf 'ffconcat version 1.0\\nfile own.mp4\\n' > concat.mp4 && : > empty.mkv");
    for (const auto& [file, status] : std::vector<std::pair<const char*, int>>{
             {"own.mp4", 0}, {"in", 0}, {"out", 3}, {"sub/dir/secret.mp4", 3}, {"../8/secret.mp4", 3}, {"fifo", 3}, {"sub", 3},
             {"missing", 3}, {"hls.mp4", 1}, {"concat.mp4", 1}, {"empty.mkv", 1}}) {
        for (const char* root : {"/srv/download/7/", "/var/services/download/7/"}) {
            const ProgramRun run = duration({"--path", std::string(root) + file});
            EXPECT_EQ(run.status, status) << root << file << run.errors;
            EXPECT_EQ(run.output, status == 0 ? expected(21) : "") << root << file;
            EXPECT_EQ(run.errors.empty(), status == 0) << root << file;
        }
    }
}

TEST_F(Duration, wantsItsCommandLine) {
    EXPECT_EQ(duration({"--path", "/etc/passwd"}).errors,
              "vexodlgetduration: /etc/passwd: cannot read the container: Invalid data found when processing input\n");
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {}, {"--path"}, {"base.mp4"}, {"--path", "base.mp4", "--debug"}, {"--path", "base.mp4", "--debug_mode", "x"}}) {
        const ProgramRun run = duration(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.output + run.errors, "usage: vexodlgetduration --path FILE [--debug_mode]\n");
    }
}

} // namespace
