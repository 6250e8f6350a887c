#include "thumbnail/thumbnailGenerator.h"

#include "platform/mediaIndex.h"
#include "platform/torrentEngine.h"
#include "thumbnail/jsonAccess.h"
#include "util/cancellation.h"

#include <syslog.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <string_view>
#include <tuple>
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

constexpr int kThumbnailsPerVideo = 5;
constexpr std::size_t kFilesPerKind = 5;
constexpr std::int64_t kMinVideoBytes = 52428800;

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

/// The files whose names have an extension, in their order: a copy, since what is done with it calls the platform.
class NamedFiles {
public:
    explicit NamedFiles(const Json::Value& files) {
        int fileIndex = 0;
        for (auto file = files.begin(); file != files.end(); ++file, ++fileIndex) {
            const std::string_view name = toText(member(*file, "name"));
            const std::size_t dot = name.rfind('.');
            if (dot != std::string_view::npos) {
                entries_.push_back({fileIndex, names_.size(), names_.size() + dot + 1});
                names_.append(name).push_back('\0');
            }
        }
    }

    struct Entry {
        int fileIndex;
        std::size_t name; ///< where it begins among all names
        std::size_t extension;
    };

    const std::vector<Entry>& entries() const { return entries_; }
    const char* text(std::size_t place) const { return names_.c_str() + place; }

private:
    std::vector<Entry> entries_;
    std::string names_; ///< one behind the other, each with its terminator
};

std::string fileName(const Json::Value& taskFiles, int fileIndex) {
    return std::string(toText(member(element(member(taskFiles, "files"), fileIndex), "name")));
}

struct Candidate {
    std::int64_t length = 0;
    int fileIndex = 0;

    bool operator>(const Candidate& other) const {
        return std::tie(length, fileIndex) > std::tie(other.length, other.fileIndex);
    }
};

/// Finds elements of an array by ascending index. jsoncpp's arrays are ordered maps: a search from the root for each of
/// 100,000 files would cost more than all the rest of a plan.
class ElementWalk {
public:
    explicit ElementWalk(const Json::Value& array)
        : begin_(array.isArray() ? array.begin() : none_.begin()), end_(array.isArray() ? array.end() : none_.end()) {}

    const Json::Value& operator[](int index) {
        if (index < index_) {
            position_ = begin_;
            index_ = 0;
        }
        for (; index_ < index && position_ != end_; ++index_) {
            ++position_;
        }
        return index_ == index && position_ != end_ ? *position_ : none_;
    }

private:
    const Json::Value& none_ = Json::Value::nullSingleton();
    Json::Value::const_iterator begin_;
    Json::Value::const_iterator end_;
    Json::Value::const_iterator position_ = begin_;
    int index_ = 0;
};

/// The largest wanted ones of the files, largest first.
std::vector<Candidate> largestWanted(const Json::Value& taskFiles, const std::vector<int>& indices) {
    ElementWalk files(member(taskFiles, "files"));
    ElementWalk fileStats(member(taskFiles, "fileStats"));
    std::vector<Candidate> best;
    for (const int index : indices) {
        const Candidate candidate = {toInt64(member(files[index], "length")), index};
        const bool isBetter = best.size() < kFilesPerKind || candidate > best.back();
        if (!isBetter || !toBool(member(fileStats[index], "wanted"))) {
            continue;
        }
        best.insert(std::upper_bound(best.begin(), best.end(), candidate, std::greater<>()), candidate);
        best.resize(std::min(best.size(), kFilesPerKind));
    }
    return best;
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

int appendMediaFiles(const ThumbnailGenerator& generator, VEXODL_MEDIA_TYPE type, std::vector<int>& indices) {
    const bool debug = generator.debug;
    const Json::Value& files = member(generator.taskFiles, "files");
    if (!files.isArray() || files.empty()) {
        LOG_FAILURE("%s:%d Wrong jsontorrent format", HERE);
        return kFailed;
    }
    const bool isVideoList = type == VEXODL_MEDIA_TYPE_VIDEO;
    const auto hasKind = isVideoList ? BlVEXOIndexIsVideo : BlVEXOIndexIsPhoto;
    const NamedFiles named(files);
    for (const NamedFiles::Entry& file : named.entries()) {
        if (hasKind(named.text(file.extension)) == 0 ||
            (isVideoList && BlVEXOIndexIsSubtitleFile(named.text(file.name)) != 0)) {
            continue;
        }
        indices.push_back(file.fileIndex);
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

/// What the entry point begins with: the task's torrent item as it is now, and its plan.
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
    return appendMediaFiles(*this, VEXODL_MEDIA_TYPE_VIDEO, indices);
}

int ThumbnailGenerator::getPhotoFile(std::vector<int>& indices) {
    return appendMediaFiles(*this, VEXODL_MEDIA_TYPE_PHOTO, indices);
}

int ThumbnailGenerator::getNeedThumbnail(std::vector<int>& indices, VEXODL_MEDIA_TYPE type) {
    if (indices.empty()) {
        LOG_FAILURE("%s:%d Bad parameter", HERE);
        return kFailed;
    }
    const std::vector<Candidate> best = largestWanted(taskFiles, indices);
    indices.clear();
    for (const Candidate& candidate : best) {
        if (type == VEXODL_MEDIA_TYPE_VIDEO && candidate.length < kMinVideoBytes) {
            break; // none of the rest is longer
        }
        indices.push_back(candidate.fileIndex);
    }
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
