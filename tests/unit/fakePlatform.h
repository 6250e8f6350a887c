#pragma once

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

using Texts = std::vector<std::string>;

/// The neighbours of the library, scripted: what they answer, and what they were asked.
///
/// The test program defines the platform operations, syslog(), time(), readlink() of the download link and statfs64()
/// itself; its definitions win over those of the libraries.
struct FakePlatform {
    // Answers.
    std::string downloadLink = {};                      ///< target of /var/services/download
    std::map<std::string, int> results = {{"exec", 1}}; ///< by operation, the first word of its calls; 0 otherwise
    int failingCall = -1;                               ///< so many calls go as scripted, then one gives -1
    Json::Value reply = {};                             ///< of the engine
    Json::Value stored = {}; ///< reply of the database; an insert adds to its "data", a list or null
    std::string helperOutput = R"({"duration": 12})";
    std::string picture = "a JPEG"; ///< what ffmpeg and convert-thumb write
    long availableBlocks = 1000000; ///< of every file system
    long blockSize = 4096;

    // Questions.
    Texts calls = {};    ///< each an operation and its arguments up to the first null pointer, behind a '|' each
    Texts messages = {}; ///< system log, without where they were written

    /// Notes a call. @return its scripted result.
    int take(const std::string& call);
};

/// Of the running test.
extern FakePlatform fake;

Json::Value json(const std::string& text);
