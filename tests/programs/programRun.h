#pragma once

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace std::string_literals;

/// How a program ended and what it printed on both its outputs.
struct ProgramRun {
    int status; ///< exit status, or 128 plus the signal
    std::string output;
    std::string errors;
    long peakBytes; ///< the most memory that it or a process of it had
};

inline std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const fs::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

/// The words of a line.
inline std::vector<std::string> words(const std::string& line) {
    std::istringstream stream(line);
    return {std::istream_iterator<std::string>(stream), {}};
}

/// The command line with which ffmpeg makes the picture of a film at a second.
inline std::vector<std::string> frameCommand(const std::string& program, const std::string& video, int second,
                                             const std::string& picture) {
    auto argv = words(program + " -ss " + std::to_string(second) + " -timelimit 300 -i -vf " +
                      R"(select=eq(pict_type\,I),scale='if(gt(a,1),min(1080,iw),-1)':'if(gt(a,1),-1,min(1080,ih))')" +
                      " -y -vframes 1 -an -qscale:v 1 -f mjpeg");
    argv.insert(argv.begin() + 6, video);
    argv.push_back(picture);
    return argv;
}

/// The command line with which convert-thumb, or stock convert, makes the picture of a photo.
inline std::vector<std::string> thumbCommand(const std::string& program, const std::string& photo,
                                             const std::string& picture) {
    auto argv = words(program + " -thumbnail 1024x1024> -quality 90 -strip -flatten -colorspace sRGB");
    argv.insert(argv.begin() + 1, photo);
    argv.push_back(picture);
    return argv;
}

/// Starts a program. What it prints goes to the files program.output and program.errors.
inline pid_t startProgram(std::vector<std::string> argv) {
    argv.insert(argv.begin(), {"/bin/sh", "-c", R"(exec "$@" >program.output 2>program.errors)", "sh"});
    std::vector<char*> pointers(argv.size() + 1);
    std::transform(argv.begin(), argv.end(), pointers.begin(), [](std::string& word) { return word.data(); });
    pid_t pid = -1;
    posix_spawn(&pid, pointers[0], nullptr, nullptr, pointers.data(), environ);
    return pid;
}

/// Waits for the end of a program.
inline ProgramRun awaitProgram(pid_t pid) {
    int status = 0;
    rusage usage = {};
    wait4(pid, &status, 0, &usage);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), readFile("program.output"),
            readFile("program.errors"), usage.ru_maxrss * 1024};
}

inline ProgramRun runProgram(std::vector<std::string> argv) {
    return awaitProgram(startProgram(std::move(argv)));
}

/// Runs a shell command that prepares a sample.
inline void shell(const std::string& command) {
    const ProgramRun run = runProgram({"/bin/sh", "-c", command});
    EXPECT_EQ(run.status, 0) << command << run.errors;
}

/// A task with an empty folder of pictures.
struct PictureTest : testing::Test {
    PictureTest() { fs::create_directories(pictures); }
    ~PictureTest() override { fs::remove_all(task); }

    /// Runs a program that makes the picture. Only with success is there one, and nothing said.
    /// @return the picture, which is then removed; empty when there is none.
    std::string made(const std::vector<std::string>& argv) {
        run = runProgram(argv);
        std::string bytes = readFile(picture);
        EXPECT_EQ(fs::remove(picture), run.status == 0) << run.errors;
        EXPECT_TRUE(fs::is_empty(pictures));
        EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), run.status == 0 ? 0 : 1) << run.errors;
        return bytes;
    }

    /// Expects that the program takes this command line with no word changed but the paths, and none left out.
    static void expectNoOther(std::vector<std::string> argv) {
        for (std::string& word : argv) {
            if (word.front() != '/') {
                word += 'x';
                EXPECT_EQ(runProgram(argv).status, 2) << word;
                word.pop_back();
            }
        }
        argv.pop_back();
        EXPECT_EQ(runProgram(argv).status, 2);
    }

    const fs::path task = "/srv/download/7";
    const fs::path pictures = task / "vexodlthumbnail";
    const fs::path picture = pictures / "3_0.jpeg";
    ProgramRun run = {};
};
