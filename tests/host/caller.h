#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <thread>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kSmallStackBytes = 1048576; // the sanitizers' own frames are large
#else
constexpr std::size_t kSmallStackBytes = 65536;
#endif

/// Takes a step in a thread with as little stack as a service may give its threads, and waits for its end.
inline void onSmallStack(const std::function<void()>& step) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kSmallStackBytes);
    pthread_setattr_default_np(&attributes);
    std::thread(step).join();
}

/// Takes a step in `count` processes at once, forks of this one. @return whether it held in all.
inline bool inProcess(const std::function<bool()>& step, int count = 1) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(step() ? 0 : 1);
    }
    const bool others = count == 1 || inProcess(step, count - 1);
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0 && others;
}
