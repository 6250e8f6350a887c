#pragma once

#include "host/caller.h"

#include <string>

namespace server {

/// Why something failed, in the neighbour's own words; a program's without those that name it and the file.
std::string reasonOf(const host::Failure& failure, const std::string& file = {});

/// Why a task has no list of files: the last failure, and where there is none, what the engine tells of all tasks.
std::string whyNoFiles(int task);

} // namespace server
