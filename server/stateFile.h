#pragma once

namespace server {

/// Makes an empty file below /var/lib/vexodl where it is missing: for its owner alone, who is the folder's owner also
/// when root makes it. Throws Trouble when that fails.
void makeStateFile(const char* path);

} // namespace server
