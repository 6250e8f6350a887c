#pragma once

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// @file
/// Tests of file names by their extension alone. Each answers non-zero for yes and 0 for no, does not block and is safe
/// from any thread. A null argument is answered with 0.

/// Is this the extension of a video file? @param extension text behind the last dot, in any case, possibly empty.
int BlVEXOIndexIsVideo(const char* extension);

/// Is this the extension of a photo file? @param extension text behind the last dot, in any case, possibly empty.
int BlVEXOIndexIsPhoto(const char* extension);

/// Is this a subtitle file? @param name the file's whole name, which may hold directories.
int BlVEXOIndexIsSubtitleFile(const char* name);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
