#pragma once

/// From now on each message that this process writes to the system log, the library's too, stands on standard error as
/// well: "PROGRAM: message", one line, made printable. The log has it byte for byte.
///
/// @param program  outlives the process's last message. Called before there are threads.
void showLog(const char* program);
