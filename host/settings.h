#pragma once

#include <cstdlib>
#include <string>

namespace host {

/// A setting of the host layer: the environment variable, or `fallback` where it is unset or empty. A process that runs
/// with more rights than its caller ignores the environment.
inline std::string setting(const char* name, const char* fallback) {
    const char* value = secure_getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

} // namespace host
