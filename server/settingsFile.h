#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace server {

/// Reads lines NAME=VALUE as systemd's EnvironmentFile= does: quotes of both kinds, backslashes, lines that go on,
/// comments that begin with # or ;. Nothing is expanded or run. What is no such line is left out.
std::vector<std::pair<std::string, std::string>> parseSettings(std::string_view text);

/// Puts the settings of a file, those whose names begin with VEXODL_, into the environment where it has none of that
/// name. A file that is missing or may not be read has none. Called before there are threads.
void readSettings(const char* path = "/etc/default/vexodl");

} // namespace server
