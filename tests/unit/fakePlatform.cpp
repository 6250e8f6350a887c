#include "fakePlatform.h"

#include "platform/fileSystem.h"
#include "platform/group.h"
#include "platform/mediaIndex.h"
#include "platform/process.h"
#include "platform/processRunner.h"
#include "platform/thumbnailDatabase.h"
#include "platform/torrentEngine.h"

#include <json/reader.h>
#include <json/writer.h>

#include <sys/vfs.h>
#include <syslog.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sstream>

// Bodies of one line.
// clang-format off

FakePlatform fake;

void append(std::string& list, const std::string& text) { list += (list.empty() ? "" : ";") + text; }

int FakePlatform::take(const std::string& call) {
    append(calls, call);
    return failingCall-- == 0 ? -1 : results[call.substr(0, call.find('|'))];
}

Json::Value json(const std::string& text) {
    Json::Value value;
    std::istringstream(text) >> value;
    return value;
}

namespace {

std::string compact(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

std::string text(const char* argument) { return argument != nullptr ? argument : "(null)"; }

using Names = std::initializer_list<const char*>;

/// Each behind a '|'; "(null)" for a null pointer.
std::string joined(Names arguments) {
    std::string all;
    for (const char* argument : arguments) {
        all += "|" + text(argument);
    }
    return all;
}

/// Notes a test of a name, which cannot fail. @return 1 when the name is one of those accepted.
int judge(const std::string& test, const std::string& name, Names accepted) {
    append(fake.calls, test + "|" + name);
    return std::count(accepted.begin(), accepted.end(), name) != 0 ? 1 : 0;
}

} // namespace

int VEXODownloadRpcTorrentGet(int taskId, const Json::Value& fields, Json::Value& reply) {
    reply = fake.reply;
    return fake.take("torrent|" + std::to_string(taskId) + "|" + compact(fields));
}

int DownloadThumbnailDBGetByTaskId(int taskId, Json::Value* reply) {
    *reply = fake.stored;
    return fake.take("rows|" + std::to_string(taskId));
}

int DownloadThumbnailDBCreate(Json::Value* row) {
    const int result = fake.take("insert|" + compact(*row));
    Json::Value& rows = fake.stored["data"];
    if (result >= 0 && (rows.isNull() || rows.isArray())) {
        rows.append(*row);
    }
    return result;
}

int BlVEXOIndexIsVideo(const char* extension) { return judge("video", extension, {"mkv", "mp4", "MKV"}); }
int BlVEXOIndexIsPhoto(const char* extension) { return judge("photo", extension, {"jpg", "png"}); }
int BlVEXOIndexIsSubtitleFile(const char* name) { return judge("subtitle", name, {"sub.mkv"}); }

int VEXOFSMkdirP(const char* path, const char* base, int parents, int uid, int gid, mode_t mode) {
    std::ostringstream call;
    call << "mkdir|" << path << "|" << text(base) << "|" << parents << "|" << uid << "|" << gid << "|" << std::oct << mode;
    std::filesystem::create_directories(path);
    return fake.take(call.str());
}

int VLIBCExec(const char* path, const char* arg1, const char* arg2, const char* arg3, const char* arg4) {
    return fake.take("exec" + joined({path, arg1, arg2, arg3, arg4}));
}

int VLIBCExecl(const char* path, int options, ...) {
    std::string call = "execl|" + text(path) + "|" + std::to_string(options);
    va_list arguments;
    va_start(arguments, options);
    while (const char* argument = va_arg(arguments, const char*)) {
        call += "|" + text(argument);
    }
    va_end(arguments);
    return fake.take(call);
}

int VLIBCExecv(const char* path, char* const argv[], int flag) {
    std::string call = "execv|" + text(path) + "|" + std::to_string(flag);
    char* const* argument = argv;
    for (; *argument != nullptr; ++argument) {
        call += "|" + text(*argument);
    }
    const int result = fake.take(call);
    if (result == 0) {
        std::ofstream(argument[-1]) << fake.picture;
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
    : command_{text(path), text(arg0) + joined({arg1, arg2, arg3, arg4, arg5, arg6, arg7, arg8})} {}

ProcessRunner::~ProcessRunner() = default;

void ProcessRunner::addArguments(const char* arg1, const char* arg2, const char*, const char*, const char*, const char*,
                                 const char*, const char*, const char*) {
    command_.push_back(arg2 == nullptr ? arg1 : "(more than one)");
}

int ProcessRunner::run(bool capture, bool wait) {
    output_ = fake.helperOutput;
    const auto join = [](const std::string& all, const std::string& next) { return all + "|" + next; };
    const std::string flags = std::string("run|") + (capture ? "1" : "0") + (wait ? "1" : "0");
    return fake.take(std::accumulate(command_.begin(), command_.end(), flags, join));
}

std::string ProcessRunner::getCapturedOutput() { return output_; }

} // namespace VEXOUtils

extern "C" {

__attribute__((visibility("default"))) void syslog(int priority, const char* format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    std::string message = line;
    const std::size_t colon = message.find(':') + 1;
    const std::size_t digits = std::strspn(message.c_str() + colon, "0123456789");
    message.replace(colon, digits, digits > 0 ? "N" : "no line");
    const std::string own = "thumbnailGenerator:N ";
    message.erase(0, message.rfind(own, 0) == 0 ? own.size() : 0);
    append(fake.messages, (priority == LOG_ERR ? "" : "low ") + message);
}

__attribute__((visibility("default"))) ssize_t readlink(const char* path, char* buffer, size_t size) {
    const bool isThere = std::strcmp(path, "/var/services/download") == 0 && !fake.downloadLink.empty();
    return isThere && size > 0 ? static_cast<ssize_t>(fake.downloadLink.copy(buffer, size)) : -1;
}

__attribute__((visibility("default"))) int statfs64(const char*, struct statfs64* volume) {
    volume->f_bavail = static_cast<decltype(volume->f_bavail)>(fake.availableBlocks);
    volume->f_bsize = fake.blockSize;
    return fake.take("statfs");
}

} // extern "C"
