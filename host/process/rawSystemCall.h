#pragma once

#include <sys/syscall.h>

namespace host {

// System calls for code that borrows another thread's memory: the C library's would write that thread's errno. Each
// answers what the kernel answers, an error as a negative errno.

#if defined(__x86_64__)

inline long rawCall(long number, long a = 0, long b = 0, long c = 0, long d = 0, long e = 0) {
    register long fourth asm("r10") = d;
    register long fifth asm("r8") = e;
    long answer = number;
    asm volatile("syscall" : "+a"(answer) : "D"(a), "S"(b), "d"(c), "r"(fourth), "r"(fifth) : "rcx", "r11", "memory");
    return answer;
}

#elif defined(__aarch64__)

inline long rawCall(long number, long a = 0, long b = 0, long c = 0, long d = 0, long e = 0) {
    register long call asm("x8") = number;
    register long first asm("x0") = a;
    register long second asm("x1") = b;
    register long third asm("x2") = c;
    register long fourth asm("x3") = d;
    register long fifth asm("x4") = e;
    asm volatile("svc 0" : "+r"(first) : "r"(call), "r"(second), "r"(third), "r"(fourth), "r"(fifth) : "memory");
    return first;
}

#else
#error "host: no system calls written for this processor"
#endif

/// A place in memory as such a call takes it.
template <typename T>
long address(const T* place) {
    return reinterpret_cast<long>(place);
}

} // namespace host
