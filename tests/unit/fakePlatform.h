#ifndef VEXODL_TESTS_FAKE_PLATFORM_H
#define VEXODL_TESTS_FAKE_PLATFORM_H

#include <json/value.h>

#include <initializer_list>
#include <string>
#include <vector>

/// The neighbours of the library, scripted: what they answer, and what they were asked.
///
/// The test program defines the platform operations, syslog(), readlink() of the download link and statfs64() itself;
/// its definitions win over those of the libraries.
struct FakePlatform {
    // Answers.
    int engineResult = 0;
    Json::Value reply;
    int readResult = 0;
    Json::Value stored; ///< reply of the database; an insert adds to its "data"
    int insertResult = 0;
    int makeDirectoryResult = 0;
    int helperResult = 0;
    std::string helperOutput = R"({"duration": 12})";
    int toolResult = 0;             ///< of ffmpeg and convert-thumb
    std::string picture = "a JPEG"; ///< what they write; nothing at all when toolWrites is not set
    bool toolWrites = true;
    int answer = 1; ///< of the volume tool and the user tool
    int removalResult = 0;
    int groupResult = 0;
    std::string downloadLink;       ///< target of /var/services/download
    long availableBlocks = 1000000; ///< of every file system
    long blockSize = 4096;

    int failingCall = -1; ///< 0-based number of the one platform call that fails, -1 for none

    // Questions.
    std::vector<std::string> calls;    ///< operation and arguments, separated by '|'
    std::vector<std::string> messages; ///< system log, "source: text", the line number left out

    /// Notes a call. @return `result`, or -1 when it is this call's turn to fail.
    int take(const std::string& call, int result);

    /// Notes a test of a name, which cannot fail. @return 1 when the name is one of those accepted.
    int judge(const std::string& test, const std::string& name, std::initializer_list<const char*> accepted);
};

/// Of the running test.
extern FakePlatform fake;

Json::Value json(const std::string& text);

#endif
