#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace host {

// Names of a torrent's files: relative to the torrent's download directory, folders included, as the engine reports
// them and as strangers chose them.

/// Does the name lead to a place below the directory that it is relative to? Only one made of plain components does:
/// none empty (so not absolute), none "." or "..", no NUL.
bool staysBelow(std::string_view name);

/// Is this the folder of the previews, or a file in it? A preview would overwrite it. The case of ASCII letters does
/// not count, since it may not on the disk.
bool isOfPreviews(std::string_view name);

/// Finds the name that a file has on the disk where that is not the one reported.
///
/// Transmission 3.00 writes a character above U+FFFF as an escape of five digits (\u1f600), of which a JSON parser
/// takes four and leaves the last as a character of its own. Where the name as parsed is not below the directory,
/// neither whole nor with ".part" behind it, but a reading with five digits is, that reading is the answer; otherwise
/// there is none and the name stands.
///
/// Looks at the disk only for a name that may hold such an escape, and then at most six times.
std::optional<std::string> otherNameOnDisk(const std::string& directory, std::string_view name);

} // namespace host
