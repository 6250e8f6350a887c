// Runs a command and prints what it and all its processes took, those included that their parents did not wait for.
//
//   runCost COMMAND...
//
// "STATUS MILLISECONDS MEBIBYTES" on standard output: the exit status, or 128 plus the signal; the processor time; the
// most memory that one process had. The command's own output is dropped, its errors are passed on.

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace {

double milliseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2) {
        std::fputs("usage: runCost COMMAND...\n", stderr);
        return 2;
    }
    prctl(PR_SET_CHILD_SUBREAPER, 1); // orphans come here and not to the first process
    const pid_t command = fork();
    if (command == 0) {
        dup2(open("/dev/null", O_RDWR | O_CLOEXEC), STDOUT_FILENO);
        execvp(arguments[1], arguments + 1);
        std::perror(arguments[1]);
        _exit(127);
    }
    int result = 127;
    int status = 0;
    for (pid_t ended = wait(&status); ended > 0; ended = wait(&status)) {
        if (ended == command) {
            result = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
    }
    rusage usage = {};
    getrusage(RUSAGE_CHILDREN, &usage);
    std::printf("%d %.1f %.0f\n", result, milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime),
                static_cast<double>(usage.ru_maxrss) / 1024);
    return 0;
}
