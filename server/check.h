#pragma once

namespace server {

/// Looks at all that the pictures of this server need and prints a line for each: "ok", or "no", what is wrong and what
/// to do.
/// @return whether all is right.
bool check();

} // namespace server
