#pragma once

#include "util/descriptor.h"

#include <string>
#include <string_view>

// A downloaded file comes from strangers, and so does its name. It is opened once, by these functions, and everything
// after works on the descriptor: no program that decodes ever sees a name of a torrent.
//
// Each returns an empty descriptor with errno set on failure.

/// Opens the directory of a task. Its last component must not be a symbolic link (ENOTDIR or ELOOP).
Descriptor openTaskDirectory(const std::string& path);

/// Opens a directory or file `relativePath` below `directory` with the given open(2) flags, part by part. No symbolic
/// link is followed (ENOTDIR or ELOOP), so nobody who swaps directories meanwhile can lead out of it. A part that is
/// empty, "." or ".." is refused (EINVAL). Below an empty `directory` there is nothing; errno stays as it is.
Descriptor openBelow(const Descriptor& directory, const std::string& relativePath, int flags);

/// Opens a regular file below the task's directory for reading. Anything else, a FIFO included, fails at once
/// with EINVAL. Every byte of `relativePath` but '/' and NUL is part of a name.
Descriptor openTaskInput(const Descriptor& taskDirectory, const std::string& relativePath);

/// The same for a path that is not a task's: links are followed wherever they lead.
Descriptor openRegularFile(const std::string& path);

/// What the path `path` names below `directory`; empty when it does not begin with `directory` and a slash.
std::string pathBelow(const std::string& directory, const std::string& path);

/// Whether the torrent engine still downloads the file: that long ".part" stands behind its name.
bool isUnfinished(std::string_view path);
