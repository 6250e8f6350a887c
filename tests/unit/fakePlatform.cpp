#include "fakePlatform.h"

#include "platform/fileSystem.h"
#include "platform/group.h"
#include "platform/mediaIndex.h"
#include "platform/process.h"
#include "platform/processRunner.h"
#include "platform/thumbnailDatabase.h"
#include "platform/torrentEngine.h"

#include <json/reader.h>

#include <sys/vfs.h>
#include <syslog.h>

#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

FakePlatform fake;

int FakePlatform::take(const std::string& call) {
    calls.push_back(call);
    return failingCall-- == 0 ? -1 : results[call.substr(0, call.find('|'))];
}

Json::Value json(const std::string& text) {
    Json::Value value;
    std::istringstream(text) >> value;
    return value;
}

namespace {

using Names = std::initializer_list<const char*>;

/// A call with its arguments behind it, each behind a '|', up to the first null pointer.
std::string callOf(std::string call, const char* const* arguments) {
    for (; *arguments != nullptr; ++arguments) {
        call.append("|").append(*arguments);
    }
    return call;
}

/// Notes a test of a name, which cannot fail. @return 1 when the name is one of those accepted.
int judge(const std::string& test, const std::string& name, const std::set<std::string>& accepted) {
    fake.calls.push_back(test + "|" + name);
    return static_cast<int>(accepted.count(name));
}

} // namespace

int VEXODownloadRpcTorrentGet(int taskId, const Json::Value& fields, Json::Value& reply) {
    std::string call = "torrent|" + std::to_string(taskId);
    for (const Json::Value& field : fields) {
        call += "|" + field.asString();
    }
    reply = fake.reply;
    return fake.take(call);
}

int DownloadThumbnailDBGetByTaskId(int taskId, Json::Value* reply) {
    *reply = fake.stored;
    return fake.take("rows|" + std::to_string(taskId));
}

int DownloadThumbnailDBCreate(Json::Value* row) {
    const int result = fake.take("insert");
    Json::Value& rows = fake.stored["data"];
    if (result >= 0 && (rows.isNull() || rows.isArray())) {
        rows.append(*row);
    }
    return result;
}

int BlVEXOIndexIsVideo(const char* extension) {
    return judge("video", extension, {"mkv", "mp4", "MKV"});
}

int BlVEXOIndexIsPhoto(const char* extension) {
    return judge("photo", extension, {"jpg", "png"});
}

int BlVEXOIndexIsSubtitleFile(const char* name) {
    return judge("subtitle", name, {"sub.mkv"});
}

int VEXOFSMkdirP(const char* path, const char* base, int parents, int uid, int gid, mode_t mode) {
    std::ostringstream call;
    call << "mkdir|" << path << '|' << parents << '|' << uid << '|' << gid << '|' << std::oct << mode;
    std::filesystem::create_directories(path);
    return fake.take(callOf(call.str(), Names{base, nullptr}.begin()));
}

int VLIBCExec(const char* path, const char* arg1, const char* arg2, const char* arg3, const char* arg4) {
    return fake.take(callOf("exec", Names{path, arg1, arg2, arg3, arg4, nullptr}.begin()));
}

int VLIBCExecl(const char* path, int options, ...) {
    va_list all;
    va_start(all, options);
    const Names command = {path, va_arg(all, const char*), va_arg(all, const char*), va_arg(all, const char*), nullptr};
    va_end(all);
    return fake.take(callOf("execl|" + std::to_string(options), command.begin()));
}

int VLIBCExecv(const char* path, char* const argv[], int flag) {
    const std::string call = callOf("execv|" + std::to_string(flag) + "|" + path, argv);
    const int result = fake.take(call);
    if (result == 0) {
        std::ofstream(call.substr(call.rfind('|') + 1)) << fake.picture;
    }
    errno = ENOENT;
    return result;
}

int VLIBGroupIsAdminGroupMemByUid(unsigned int uid, int flag) {
    return fake.take("group|" + std::to_string(uid) + "|" + std::to_string(flag));
}

namespace VEXOUtils {

ProcessRunner::ProcessRunner(const char* path, const char* arg0, const char* arg1, const char* arg2, const char* arg3,
                             const char* arg4, const char* arg5, const char* arg6, const char* arg7, const char* arg8)
    : command_{callOf("", Names{path, arg0, arg1, arg2, arg3, arg4, arg5, arg6, arg7, arg8, nullptr}.begin())} {}

ProcessRunner::~ProcessRunner() = default;

void ProcessRunner::addArguments(const char* arg1, const char* arg2, const char* arg3, const char* arg4,
                                 const char* arg5, const char* arg6, const char* arg7, const char* arg8,
                                 const char* arg9) {
    const Names arguments = {arg1, arg2, arg3, arg4, arg5, arg6, arg7, arg8, arg9, nullptr};
    command_[0] = callOf(command_[0], arguments.begin());
}

int ProcessRunner::run(bool capture, bool wait) {
    output_ = fake.helperOutput;
    return fake.take("run|" + std::to_string(capture) + "|" + std::to_string(wait) + command_[0]);
}

std::string ProcessRunner::getCapturedOutput() {
    return output_;
}

} // namespace VEXOUtils

extern "C" {

__attribute__((visibility("default"))) void syslog(int priority, const char* format, ...) {
    char line[1024] = "";
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    int text = 0;
    std::sscanf(line, "%*[^:]:%*d %n", &text);
    fake.messages.push_back(line + (priority == LOG_ERR ? text : 0)); // whole, when it has another priority
}

__attribute__((visibility("default"))) ssize_t readlink(const char* path, char* buffer, size_t size) {
    const bool isThere = path == std::string("/var/services/download") && !fake.downloadLink.empty();
    return isThere && size > 0 ? static_cast<ssize_t>(fake.downloadLink.copy(buffer, size)) : -1;
}

__attribute__((visibility("default"))) time_t time(time_t*) {
    return 1700000000;
}

__attribute__((visibility("default"))) int statfs64(const char*, struct statfs64* volume) {
    volume->f_bavail = static_cast<decltype(volume->f_bavail)>(fake.availableBlocks);
    volume->f_bsize = fake.blockSize;
    return fake.take("statfs");
}

} // extern "C"
