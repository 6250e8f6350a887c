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

/// clone(), the new process entering `entry(argument)` on a stack of its own; `entry` must not return.
///
/// @param stackEnd  the end of that stack, a multiple of 16. @param parentTid  clone's third parameter.
inline long rawClone(unsigned long flags, long stackEnd, long parentTid, void (*entry)(void*), void* argument) {
    register long childTid asm("r10") = 0;
    register auto target asm("r8") = entry; // the place of clone's thread area, which these flags leave unread
    register void* first asm("r9") = argument;
    long answer = SYS_clone;
    asm volatile("syscall\n\t"
                 "test %%rax, %%rax\n\t"
                 "jnz 1f\n\t"
                 "xor %%ebp, %%ebp\n\t"
                 "mov %%r9, %%rdi\n\t"
                 "call *%%r8\n\t"
                 "ud2\n"
                 "1:"
                 : "+a"(answer)
                 : "D"(flags), "S"(stackEnd), "d"(parentTid), "r"(childTid), "r"(target), "r"(first)
                 : "rcx", "r11", "cc", "memory");
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

/// clone(), the new process entering `entry(argument)` on a stack of its own; `entry` must not return.
///
/// @param stackEnd  the end of that stack, a multiple of 16. @param parentTid  clone's third parameter.
inline long rawClone(unsigned long flags, long stackEnd, long parentTid, void (*entry)(void*), void* argument) {
    register long call asm("x8") = SYS_clone;
    register unsigned long answer asm("x0") = flags;
    register long stack asm("x1") = stackEnd;
    register long tid asm("x2") = parentTid;
    register long threadArea asm("x3") = 0;
    register long childTid asm("x4") = 0;
    register auto target asm("x5") = entry;
    register void* first asm("x6") = argument;
    asm volatile("svc 0\n\t"
                 "cbnz x0, 1f\n\t"
                 "mov x29, xzr\n\t"
                 "mov x0, x6\n\t"
                 "blr x5\n\t"
                 "brk #0\n"
                 "1:"
                 : "+r"(answer)
                 : "r"(call), "r"(stack), "r"(tid), "r"(threadArea), "r"(childTid), "r"(target), "r"(first)
                 : "cc", "memory");
    return static_cast<long>(answer);
}

#else
#error "host: no system calls written for this processor"
#endif

} // namespace host
