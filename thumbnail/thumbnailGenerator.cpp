#include "thumbnail/thumbnailGenerator.h"

#include "platform/fileSystem.h"
#include "platform/mediaIndex.h"
#include "platform/process.h"
#include "platform/processRunner.h"
#include "platform/thumbnailDatabase.h"
#include "platform/torrentEngine.h"
#include "util/cancellation.h"
#include "util/file.h"
#include "util/jsonAccess.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <exception>
#include <functional>
#include <string_view>
#include <utility>

using jsonAccess::element;
using jsonAccess::member;
using jsonAccess::toBool;
using jsonAccess::toInt64;
using jsonAccess::toText;

// First arguments of every message: where it was written.
#define HERE "thumbnailGenerator", __LINE__

// Writes a message where the generator's debug flag, named `debug` in the scope of the call, is set. Leaves errno alone
// up to the call, for "%m".
#define LOG_FAILURE(...)                                                                                               \
    do {                                                                                                               \
        if (debug) {                                                                                                   \
            __extension__ syslog(LOG_ERR, __VA_ARGS__);                                                                \
        }                                                                                                              \
    } while (false)

namespace {

constexpr int kFailed = -1;

constexpr const char* kFfmpeg = "/usr/vexo/bin/ffmpeg";
constexpr const char* kConvertThumb = "/usr/vexo/bin/convert-thumb";
constexpr const char* kDurationHelper = "/var/packages/Quellbox/target/bin/vexodlgetduration";

constexpr const char* kWorkDirectory = "vexodlthumbnail";
constexpr mode_t kWorkDirectoryMode = 0755;

constexpr int kThumbnailsPerVideo = 5;
constexpr std::size_t kFilesPerKind = 5;
constexpr std::int64_t kMinVideoBytes = 52428800;
constexpr int kTimeLimitSeconds = 300;

/// Runs an entry point so that neither an exception (memory ran out) nor a cancellation of the thread leaves it.
template <class Body>
int runShielded(const Body& body) {
    const CancellationBlock block;
    try {
        return body();
    } catch (const std::exception&) {
        return kFailed;
    }
}

// Pure reads of a torrent item.

/// The five largest of the candidates that are wanted and have at least `minBytes`, largest first.
std::vector<int> largestWanted(const Json::Value& taskFiles, const std::vector<int>& candidates,
                               std::int64_t minBytes) {
    const Json::Value& files = member(taskFiles, "files");
    const Json::Value& fileStats = member(taskFiles, "fileStats");
    std::vector<std::pair<std::int64_t, int>> ranked; // length and index
    for (const int index : candidates) {
        const std::int64_t length = toInt64(member(element(files, index), "length"));
        if (length >= minBytes) {
            ranked.emplace_back(length, index);
        }
    }
    std::sort(ranked.begin(), ranked.end(), std::greater<>());
    std::vector<int> largest;
    largest.reserve(kFilesPerKind);
    for (const auto& [length, index] : ranked) {
        if (largest.size() < kFilesPerKind && toBool(member(element(fileStats, index), "wanted"))) {
            largest.push_back(index);
        }
    }
    return largest;
}

std::string fileName(const Json::Value& taskFiles, int fileIndex) {
    return std::string(toText(member(element(member(taskFiles, "files"), fileIndex), "name")));
}

enum class Download { unknown, incomplete, complete };

Download downloadOf(const Json::Value& file) {
    const Json::Value& bytesCompleted = member(file, "bytesCompleted");
    const Json::Value& length = member(file, "length");
    if (!bytesCompleted.isIntegral() || !length.isIntegral()) {
        return Download::unknown;
    }
    return toInt64(bytesCompleted) == toInt64(length) ? Download::complete : Download::incomplete;
}

// One record's way to its picture.

/// Where a record's source lies and its picture goes.
struct ThumbnailPaths {
    std::string source;
    std::string workDirectory;
    std::string fileName; ///< of the picture, without directory
    std::string output;
};

ThumbnailPaths pathsOf(const std::string& tmpDownloadDir, int taskId, const Thumbnail& thumbnail) {
    const std::string taskDirectory = tmpDownloadDir + "/" + std::to_string(taskId) + "/";
    ThumbnailPaths paths;
    paths.source = taskDirectory + thumbnail.file_path;
    paths.workDirectory = taskDirectory + kWorkDirectory;
    paths.fileName = std::to_string(thumbnail.file_index) + "_" + std::to_string(thumbnail.thumbnail_index) + ".jpeg";
    paths.output = paths.workDirectory + "/" + paths.fileName;
    return paths;
}

int findTmpDownloadDir(std::string& directory) {
    std::array<char, 4096> text = {};
    if (GetTmpDownloadDir(text.data(), static_cast<int>(text.size())) < 0) {
        return kFailed;
    }
    directory = text.data();
    return 0;
}

/// The second that a thumbnail of a video of `duration` seconds shows: one second into its share of the video.
int secondOf(int duration, int thumbnailIndex) {
    const std::int64_t share = duration / kThumbnailsPerVideo;
    return static_cast<int>(share * thumbnailIndex + 1);
}

// The two ways to a picture, each with its own messages. `second` receives what the picture shows.

int makeFromVideo(ThumbnailGenerator& generator, ThumbnailPaths& paths, int thumbnailIndex, int& second) {
    const bool debug = generator.debug;
    Json::Value mediaInfo(Json::objectValue);
    if (generator.getMediaInfo(paths.source, mediaInfo) < 0) {
        LOG_FAILURE("%s:%d Failed to get mediaInfo", HERE);
        return kFailed;
    }
    const Json::Value& duration = member(mediaInfo, "duration");
    if (!duration.isInt() || duration.asInt() <= 0) {
        LOG_FAILURE("%s:%d Duration is invalid", HERE);
        return kFailed;
    }
    second = secondOf(duration.asInt(), thumbnailIndex);
    if (generator.generateThumbnailByFFMPEG(paths.source.c_str(), paths.output.c_str(), second) < 0) {
        LOG_FAILURE("%s:%d Failed to generate thumbnail [%s] from [%s] by ffmpep", HERE, paths.output.c_str(),
                    paths.source.c_str());
        return kFailed;
    }
    return 0;
}

int makeFromPhoto(ThumbnailGenerator& generator, const ThumbnailPaths& paths, int fileIndex, int& second) {
    const bool debug = generator.debug;
    if (downloadOf(element(member(generator.taskFiles, "files"), fileIndex)) != Download::complete) {
        return kFailed;
    }
    if (generator.generateThumbnailByConvertThumb(paths.source, paths.output) < 0) {
        LOG_FAILURE("%s:%d Failed to generate thumbnail [%s] from [%s] by convert-thumb", HERE, paths.output.c_str(),
                    paths.source.c_str());
        return kFailed;
    }
    second = 0;
    return 0;
}

/// Appends the indices of the files whose names are of one kind, ascending.
///
/// @param isOfKind  asked with a name and what stands behind its last dot.
template <class NameTest>
int appendFiles(const ThumbnailGenerator& generator, NameTest isOfKind, std::vector<int>& indices) {
    const bool debug = generator.debug;
    const Json::Value& files = member(generator.taskFiles, "files");
    if (!files.isArray() || files.empty()) {
        LOG_FAILURE("%s:%d Wrong jsontorrent format", HERE);
        return kFailed;
    }
    int index = 0;
    for (const Json::Value& file : files) {
        const std::string name(toText(member(file, "name")));
        const std::size_t dot = name.rfind('.');
        if (dot != std::string::npos && isOfKind(name.c_str(), name.c_str() + dot + 1)) {
            indices.push_back(index);
        }
        ++index;
    }
    return 0;
}

/// Appends the records of the chosen videos, largest first.
void planVideos(const ThumbnailGenerator& generator, const std::vector<int>& videos, std::vector<Thumbnail>& list) {
    const bool debug = generator.debug;
    for (std::size_t position = 0; position < videos.size(); ++position) {
        const Json::Value& file = element(member(generator.taskFiles, "files"), videos[position]);
        const Json::Value& name = member(file, "name");
        if (!name.isString()) {
            LOG_FAILURE("%s:%d Failed to get temp file name %d", HERE, static_cast<int>(position));
            continue;
        }
        std::string path(toText(name));
        if (downloadOf(file) == Download::incomplete) {
            path += ".part"; // how an unfinished file is named on disk
        }
        for (int index = 0; index < kThumbnailsPerVideo; ++index) {
            list.emplace_back(generator.taskId, videos[position], index, path, VEXODL_MEDIA_TYPE_VIDEO);
        }
    }
}

/// What both entry points begin with: the task's torrent item as it is now, and its plan.
int planTask(ThumbnailGenerator& generator, std::vector<Thumbnail>& list) {
    const bool debug = generator.debug;
    if (generator.getTaskFileList(generator.taskId) < 0) {
        LOG_FAILURE("%s:%d Failed to get file list of task", HERE);
        return kFailed;
    }
    if (generator.getThumbnailList(list) < 0) {
        LOG_FAILURE("%s:%d Failed to getThumbnailList", HERE);
        return kFailed;
    }
    return 0;
}

} // namespace

ThumbnailGenerator::ThumbnailGenerator(int task, bool debugFlag) : taskId(task), debug(debugFlag) {}

int ThumbnailGenerator::generate() {
    return runShielded([this] {
        std::vector<Thumbnail> list;
        if (planTask(*this, list) < 0) {
            return kFailed;
        }
        if (filterExistThumbnail(list) < 0) {
            LOG_FAILURE("%s:%d Failed to remove existed thumbnail", HERE);
            return kFailed;
        }
        if (generateThumbnailByList(list) < 0) {
            LOG_FAILURE("%s:%d Failed to generate thumbnail", HERE);
            return kFailed;
        }
        return 0;
    });
}

int ThumbnailGenerator::getTotalThumbnailNumber() {
    return runShielded([this] {
        std::vector<Thumbnail> list;
        return planTask(*this, list) < 0 ? kFailed : static_cast<int>(list.size());
    });
}

// Ask: the task's torrent item.

int ThumbnailGenerator::getTaskFileList(int task) {
    Json::Value fields(Json::arrayValue);
    for (const char* field : {"id", "name", "files", "fileStats"}) {
        fields.append(field);
    }
    Json::Value reply;
    if (VEXODownloadRpcTorrentGet(task, fields, reply) != 0) {
        LOG_FAILURE("%s:%d Failed to get torrent file list", HERE);
        return kFailed;
    }
    // Moved, not copied: the reply of a task of many files takes over 100 MB.
    if (getFirstTorrentItem(std::move(reply)) < 0) {
        LOG_FAILURE("%s:%d Failed to get first torrent item", HERE);
        return kFailed;
    }
    return 0;
}

int ThumbnailGenerator::getFirstTorrentItem(Json::Value reply) {
    const Json::Value& torrents = member(member(reply, "arguments"), "torrents");
    if (!torrents.isArray() || torrents.empty()) {
        return kFailed;
    }
    taskFiles = std::move(reply["arguments"]["torrents"][0U]);
    return 0;
}

// Plan: pure but for the platform's tests of names; reads taskFiles only.

int ThumbnailGenerator::getVideoFile(std::vector<int>& indices) {
    const auto isVideo = [](const char* name, const char* extension) {
        return BlVEXOIndexIsVideo(extension) != 0 && BlVEXOIndexIsSubtitleFile(name) == 0;
    };
    return appendFiles(*this, isVideo, indices);
}

int ThumbnailGenerator::getPhotoFile(std::vector<int>& indices) {
    const auto isPhoto = [](const char*, const char* extension) { return BlVEXOIndexIsPhoto(extension) != 0; };
    return appendFiles(*this, isPhoto, indices);
}

int ThumbnailGenerator::getNeedThumbnail(std::vector<int>& indices, VEXODL_MEDIA_TYPE type) {
    if (indices.empty()) {
        LOG_FAILURE("%s:%d Bad parameter", HERE);
        return kFailed;
    }
    indices = largestWanted(taskFiles, indices, type == VEXODL_MEDIA_TYPE_VIDEO ? kMinVideoBytes : INT64_MIN);
    return 0;
}

int ThumbnailGenerator::getThumbnailList(std::vector<Thumbnail>& list) {
    std::vector<int> videos;
    if (getVideoFile(videos) < 0) {
        LOG_FAILURE("%s:%d Failed to get list of video files", HERE);
        return kFailed;
    }
    if (!videos.empty() && getNeedThumbnail(videos, VEXODL_MEDIA_TYPE_VIDEO) < 0) {
        LOG_FAILURE("%s:%d Failed to get video need thumbnail", HERE);
        return kFailed;
    }
    planVideos(*this, videos, list);

    std::vector<int> photos;
    if (getPhotoFile(photos) < 0) {
        LOG_FAILURE("%s:%d Failed to get list of photo files", HERE);
        return kFailed;
    }
    if (!photos.empty() && getNeedThumbnail(photos, VEXODL_MEDIA_TYPE_PHOTO) < 0) {
        LOG_FAILURE("%s:%d Failed to get photo need thumbnail", HERE);
        return kFailed;
    }
    for (const int photo : photos) {
        list.emplace_back(taskId, photo, 0, fileName(taskFiles, photo), VEXODL_MEDIA_TYPE_PHOTO);
    }
    return 0;
}

// Filter: what the database holds already.

int ThumbnailGenerator::getExistThumbnailList(std::vector<Thumbnail>& list) {
    Json::Value reply;
    if (DownloadThumbnailDBGetByTaskId(taskId, &reply) < 0) {
        LOG_FAILURE("%s:%d Failed to get all thumbnail info", HERE);
        return kFailed;
    }
    Json::Value rows;
    reply.removeMember("data", &rows);
    if (!rows.isArray()) {
        return 0;
    }
    for (Json::Value& row : rows) {
        list.emplace_back(row);
    }
    return 0;
}

int ThumbnailGenerator::filterExistThumbnail(std::vector<Thumbnail>& list) {
    std::vector<Thumbnail> recorded;
    if (getExistThumbnailList(recorded) != 0) {
        LOG_FAILURE("%s:%d Failed to get existing thumbnail list", HERE);
        return kFailed;
    }
    const auto isRecorded = [&recorded](Thumbnail& planned) {
        return std::any_of(recorded.begin(), recorded.end(),
                           [&planned](Thumbnail& row) { return planned.IsSameThumbnail(row); });
    };
    list.erase(std::remove_if(list.begin(), list.end(), isRecorded), list.end());
    return 0;
}

// Make and record.

int ThumbnailGenerator::generateThumbnailByList(std::vector<Thumbnail>& list) {
    std::size_t successes = 0;
    for (Thumbnail& thumbnail : list) {
        if (generateThumbnail(thumbnail) < 0) {
            LOG_FAILURE("%s:%d Failed to generate thumbnail, taskId:%d, fileIndex:%d, thumbnailIndex:%d", HERE,
                        thumbnail.task_id, thumbnail.file_index, thumbnail.thumbnail_index);
            continue;
        }
        Json::Value row;
        thumbnail.toJson(row);
        if (DownloadThumbnailDBCreate(&row) < 0) {
            LOG_FAILURE("%s:%d Failed to add thumbnail to db, taskId:%d, fileIndex:%d, thumbnailIndex:%d", HERE,
                        thumbnail.task_id, thumbnail.file_index, thumbnail.thumbnail_index);
            continue;
        }
        ++successes;
    }
    if (successes != list.size()) {
        LOG_FAILURE("%s:%d Failed to generate all thumbnail %d(%d)", HERE, static_cast<int>(list.size()),
                    static_cast<int>(successes));
        return kFailed;
    }
    return 0;
}

int ThumbnailGenerator::generateThumbnail(Thumbnail& thumbnail) {
    std::string tmpDownloadDir;
    if (findTmpDownloadDir(tmpDownloadDir) < 0) {
        LOG_FAILURE("%s:%d Failed to get tmp download dir", HERE);
        return kFailed;
    }
    ThumbnailPaths paths = pathsOf(tmpDownloadDir, taskId, thumbnail);
    if (VEXOFSMkdirP(paths.workDirectory.c_str(), nullptr, 1, -1, -1, kWorkDirectoryMode) < 0) {
        LOG_FAILURE("%s:%d Failed to do make directory %s", HERE, paths.workDirectory.c_str());
        return kFailed;
    }
    int second = 0;
    int made = kFailed;
    switch (thumbnail.media_type) {
    case VEXODL_MEDIA_TYPE_VIDEO:
        made = makeFromVideo(*this, paths, thumbnail.thumbnail_index, second);
        break;
    case VEXODL_MEDIA_TYPE_PHOTO:
        made = makeFromPhoto(*this, paths, thumbnail.file_index, second);
        break;
    default:
        LOG_FAILURE("%s:%d Not supported type %d", HERE, static_cast<int>(thumbnail.media_type));
    }
    if (made < 0) {
        return kFailed;
    }
    if (isValidThumbnail(paths.output) < 0) {
        unlink(paths.output.c_str());
        LOG_FAILURE("%s:%d Not a valid thumbnail image", HERE);
        return kFailed;
    }
    thumbnail.setThumbnail(paths.fileName, second, static_cast<int>(std::time(nullptr)));
    return 0;
}

int ThumbnailGenerator::generateThumbnailByFFMPEG(const char* inputPath, const char* outputPath, int second) {
    std::array<char, 32> secondText = {};
    std::array<char, 32> timeLimitText = {};
    if (second <= 0 || std::snprintf(secondText.data(), secondText.size(), "%d", second) < 0) {
        LOG_FAILURE("%s:%d Failed to set second %d", HERE, second);
        return kFailed;
    }
    if (std::snprintf(timeLimitText.data(), timeLimitText.size(), "%d", kTimeLimitSeconds) < 0) {
        LOG_FAILURE("%s:%d Failed to set timeout %d", HERE, kTimeLimitSeconds);
        return kFailed;
    }
    // A key frame, its longer side at most 1080 pixels, never enlarged.
    const char* filter = "select=eq(pict_type\\,I),"
                         "scale='if(gt(a,1),min(1080,iw),-1)':'if(gt(a,1),-1,min(1080,ih))'";
    const std::array<const char*, 19> arguments = {kFfmpeg,
                                                   "-ss",
                                                   secondText.data(),
                                                   "-timelimit",
                                                   timeLimitText.data(),
                                                   "-i",
                                                   inputPath,
                                                   "-vf",
                                                   filter,
                                                   "-y",
                                                   "-vframes",
                                                   "1",
                                                   "-an",
                                                   "-qscale:v",
                                                   "1",
                                                   "-f",
                                                   "mjpeg",
                                                   outputPath,
                                                   nullptr};
    const int result = VLIBCExecv(kFfmpeg, const_cast<char* const*>(arguments.data()), 1);
    if (result != 0) {
        LOG_FAILURE("%s:%d Failed to run ffmpeg [%m] return %d", HERE, result);
        return kFailed;
    }
    return 0;
}

int ThumbnailGenerator::generateThumbnailByConvertThumb(const std::string& inputPath, const std::string& outputPath) {
    const std::array<const char*, 12> arguments = {
        kConvertThumb, inputPath.c_str(), "-thumbnail",  "1024x1024>", "-quality",         "90",
        "-strip",      "-flatten",        "-colorspace", "sRGB",       outputPath.c_str(), nullptr};
    const int result = VLIBCExecv(kConvertThumb, const_cast<char* const*>(arguments.data()), 1);
    if (result != 0) {
        LOG_FAILURE("%s:%d Failed to convert-thumb retcode: %d.", HERE, result);
        return kFailed;
    }
    return 0;
}

int ThumbnailGenerator::getMediaInfo(std::string& path, Json::Value& mediaInfo) {
    VEXOUtils::ProcessRunner runner(kDurationHelper, kDurationHelper, nullptr, nullptr, nullptr, nullptr, nullptr,
                                    nullptr, nullptr, nullptr);
    if (path.empty()) {
        LOG_FAILURE("%s:%d Bad parameter", HERE);
        return kFailed;
    }
    const auto addArgument = [&runner](const char* argument) {
        runner.addArguments(argument, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    };
    addArgument("--path");
    addArgument(path.c_str());
    if (debug) {
        addArgument("--debug_mode");
    }
    if (runner.run(true, true) != 0) {
        LOG_FAILURE("%s:%d Failed to get duration", HERE);
        return kFailed;
    }
    const std::string output = runner.getCapturedOutput();
    if (output.empty()) {
        LOG_FAILURE("%s:%d Failed to get output of duration", HERE);
        return kFailed;
    }
    if (!jsonAccess::parse(output, mediaInfo)) {
        LOG_FAILURE("%s:%d Failed to get mediaInfo json from string", HERE);
        return kFailed;
    }
    return 0;
}

int ThumbnailGenerator::isValidThumbnail(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        LOG_FAILURE("%s:%d Failed to lstat() %s. [%m]", HERE, path.c_str());
        return kFailed;
    }
    return status.st_size != 0 ? 0 : kFailed;
}
