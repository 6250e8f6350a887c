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

TEST(Duration, ShowsWhatAFileSaysWithoutEffect) {
    shell(R"(sed 's#V_MPEG4/ISO/AVC#V_\x1bPEG4\nISO/AVC#' samples/silent.mkv > odd.mkv)");
    const std::string said = duration({"--path", "odd.mkv", "--debug_mode"}).errors;
    EXPECT_NE(said.find(R"(V_\x1BPEG4\x0AISO/AVC)"), std::string::npos) << said;
    EXPECT_EQ(said.find('\x1b'), std::string::npos);
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

/// Of each a part is missing, in percent of its bytes. Some have most of these in their second half.
TEST(Duration, IsThatOfTheWholeOfAnUnfinishedFile) {
    const std::string copy = "-c copy -f ", mp2 = "-c:v mpeg2video -b:v 1M -c:a mp2 -f mpeg",
                      uneven = "-s 160x90 -vf 'noise=alls=60:allf=t:enable=gt(t\\,8)' -c:v libx264 -g 25 -f ",
                      fragments = "mp4 -movflags frag_keyframe";
    const std::tuple<std::string, int, int> films[] = {{copy + "mpegts", 60, 100},
                                                       {copy + "mpegts", 0, 40},
                                                       {uneven + "mpegts", 60, 97},
                                                       {copy + "mpegts -output_ts_offset 9000", 0, 40},
                                                       {mp2, 60, 100},
                                                       {mp2, 0, 40},
                                                       {copy + "matroska -live 1", 30, 80},
                                                       {copy + "matroska -live 1", 60, 100},
                                                       {"-c:v libtheora -b:v 1M -c:a libvorbis -f ogg", 60, 100},
                                                       {copy + "h264 -an", 30, 60},
                                                       {copy + fragments, 60, 100},
                                                       {uneven + fragments + "+empty_moov", 30, 99},
                                                       {uneven + fragments + "+empty_moov+global_sidx", 30, 100}};
    for (const auto& [make, from, to] : films) {
        const std::string part = std::to_string(from) + "*size/100)) count=$((" + std::to_string(to - from);
        shell("ffmpeg -v error -y -i samples/short.mp4 " + make +
              " cut.part && size=$(stat -c %s cut.part) && dd "
              "if=/dev/zero of=cut.part status=none conv=notrunc bs=64K oflag=seek_bytes iflag=count_bytes seek=$((" +
              part + "*size/100))");
        const ProgramRun run = duration({"--path", "cut.part"});
        EXPECT_TRUE(run.output == expected(14) || run.output == expected(15))
            << make << from << run.output << run.errors;
    }
}

/// A box that stock ffmpeg writes none of: 99 s.
TEST(Duration, IsWhatAnMp4TellsOfItsFragments) {
    shell("ffmpeg -v error -y -i samples/short.mp4 -c copy -f mp4 "
          "-movflags frag_keyframe+empty_moov+default_base_moof cut.part");
    std::string film = readFile("cut.part");
    for (const char* outer : {"moov", "mvex"}) {
        char& size = film[film.find(outer) - 1];
        ASSERT_LT(static_cast<unsigned char>(size), 240) << outer;
        size = static_cast<char>(size + 16);
    }
    film.insert(film.find("mvex") + 4, "\0\0\0\x10mehd\0\0\0\0\0\1\x82\xb8"s);
    writeFile("cut.part", film.substr(0, film.size() / 2) + std::string(film.size() / 2, '\0'));
    EXPECT_EQ(duration({"--path", "cut.part"}).output, expected(99));
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
    for (const auto& [file, status] :
         {std::pair("own.mp4", 0), {"in", 3}, {"out", 3}, {"sub/dir/secret.mp4", 3}, {"fifo", 3}}) {
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
