#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace server {

inline constexpr const char* kSettingsFile = "/etc/default/vexodl";

/// Reads lines NAME=VALUE as systemd's EnvironmentFile= does: quotes of both kinds, backslashes, lines that go on,
/// comments that begin with # or ;. Nothing is expanded or run. What is no such line is left out.
std::vector<std::pair<std::string, std::string>> parseSettings(std::string_view text);

/// Puts the settings of a file, those whose names begin with VEXODL_, into the environment where it has none of that
/// name. A file that is missing or may not be read has none. Called before there are threads.
void readSettings(const char* path = kSettingsFile);

// Settings of the server's programs, from the environment. They throw Trouble where it has no such value.

/// VEXODL_TASKS_AT_ONCE: how many tasks one run works on at a time.
std::size_t tasksAtOnce();

/// VEXODL_PAGE: shall runs write the page of previews? They do unless it is "off".
bool isPageWanted();

} // namespace server
