#pragma once

#include <json/value.h>

#include <string>

/// What the engine says of one file.
std::string fileText(const std::string& name, long long length);
std::string fileStatsText(long long length);

/// The engine's answer to a request for one torrent. @param files,fileStats elements, each followed by a comma.
std::string answerText(int task, std::string files, std::string fileStats);

/// An answer about a task of so many files: two videos of five, two photos, and a text.
std::string answerOfFiles(int task, int files);

/// Reads an answer as the host layer does; ends the program when it is no JSON.
Json::Value parsed(const std::string& answer);
