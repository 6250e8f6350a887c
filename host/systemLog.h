#pragma once

#include <string_view>

namespace host {

/// Writes "vexoplatform: <area>: <what>" as one line to the system log (LOG_ERR).
///
/// `what` is made printable and a long one is cut, so that foreign text can neither forge a second line nor flood the
/// log. Where no memory is left for that the line says so in its place. Throws nothing and leaves errno as it was. Safe
/// from any thread.
void logFailure(const char* area, std::string_view what) noexcept;

} // namespace host
