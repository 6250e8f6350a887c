#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

/// How a program ended and what it printed on both its outputs.
struct ProgramRun {
    int status; ///< exit status, or 128 plus the signal
    std::string output;
    std::string errors;
    long peakBytes; ///< the most memory that it or a process of it had
};

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

/// Starts a program; no shell. What it prints goes to the files program.output and program.errors.
inline pid_t startProgram(std::vector<std::string> argv) {
    std::vector<char*> pointers;
    pointers.reserve(argv.size() + 1);
    for (std::string& argument : argv) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        if (std::freopen("program.output", "w", stdout) != nullptr &&
            std::freopen("program.errors", "w", stderr) != nullptr) {
            execvp(pointers[0], pointers.data());
        }
        _exit(127);
    }
    return pid;
}

inline int exitStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Runs a program to its end.
inline ProgramRun runProgram(std::vector<std::string> argv) {
    int status = 0;
    rusage usage = {};
    wait4(startProgram(std::move(argv)), &status, 0, &usage);
    return {exitStatus(status), readFile("program.output"), readFile("program.errors"), usage.ru_maxrss * 1024};
}

/// Runs a shell command that prepares a sample; throws when it fails.
inline void shell(const std::string& command) {
    const ProgramRun run = runProgram({"/bin/sh", "-c", command});
    if (run.status != 0) {
        throw std::runtime_error(command + ": " + run.errors);
    }
}
