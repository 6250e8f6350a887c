#pragma once

#include "util/descriptor.h"

#include <optional>

namespace server {

/// Held while a task is worked on, by one run of all on this machine; gone with the process that has it.
///
/// One byte of the file /var/lib/vexodl/locks for each task: a folder of downloads may be opened by others, who could
/// hold a lock in it.
class TaskLock {
public:
    enum class WhenHeld { giveUp, wait };

    /// @return nothing when another run has the task and `whenHeld` says to give up. Throws Trouble where the file
    /// cannot be opened.
    static std::optional<TaskLock> take(int task, WhenHeld whenHeld);

    /// Waits for the right to write the page of previews. Throws as take().
    static TaskLock takePage();

private:
    explicit TaskLock(Descriptor file) : file_(std::move(file)) {}

    Descriptor file_;
};

} // namespace server
