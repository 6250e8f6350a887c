#pragma once

#include <string_view>

namespace host {

/// Writes "vexoplatform: <area>: <what>" as one line to the system log (LOG_ERR).
///
/// Control characters become \xNN and a long text is cut, so that foreign text can neither forge a second line nor
/// flood the log. Allocates nothing, throws nothing and leaves errno as it was. Safe from any thread.
void logFailure(std::string_view area, std::string_view what);

} // namespace host
