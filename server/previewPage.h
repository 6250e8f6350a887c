#pragma once

#include "host/caller.h"

#include <string>
#include <vector>

namespace server {

/// A page of the tasks and their pictures, for browsers: complete in itself, the pictures by links relative to the
/// download area. The task that was added last stands first. All foreign text is escaped.
std::string previewPage(const host::EngineTasks& engine, const std::vector<host::RecordedPicture>& pictures);

} // namespace server
