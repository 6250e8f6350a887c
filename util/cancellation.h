#pragma once

#include <pthread.h>

/// Keeps the calling thread from being cancelled while this object lives; a request made meanwhile is taken later.
///
/// Everything that waits for a child is a cancellation point, and a thread unwound from there would leave the child
/// behind, or end the process at the first handler that does not pass the unwinding on.
class CancellationBlock {
public:
    CancellationBlock() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~CancellationBlock() { pthread_setcancelstate(before_, nullptr); }
    CancellationBlock(const CancellationBlock&) = delete;
    CancellationBlock& operator=(const CancellationBlock&) = delete;

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};
