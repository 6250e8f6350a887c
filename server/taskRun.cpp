#include "server/taskRun.h"

#include "server/reason.h"
#include "server/shownText.h"
#include "server/taskLock.h"
#include "server/taskRows.h"
#include "server/trouble.h"
#include "thumbnail/thumbnailGenerator.h"
#include "util/jsonAccess.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <map>
#include <utility>
#include <vector>

namespace server {
namespace {

using jsonAccess::element;
using jsonAccess::member;
using jsonAccess::toInt64;

constexpr std::chrono::minutes kLongestRun{10};
constexpr std::time_t kBetweenLooks = 300; ///< seconds, at a file that grows

// Exit statuses of the programs at the fixed paths that tell of the server and not of the file.
constexpr int kNotConfined = 5;
constexpr int kNoSpace = 7;
constexpr int kEndedBySignal = 128;
constexpr const char* kDurationHelper = "/var/packages/Quellbox/target/bin/vexodlgetduration";

bool isFull(int error) {
    return error == ENOSPC || error == EDQUOT;
}

bool isInterruption(int status) {
    return status == kEndedBySignal + SIGTERM || status == kEndedBySignal + SIGINT || status == kEndedBySignal + SIGHUP;
}

/// Throws what is not the file's own failure.
void throwTrouble(const host::Failure& failure) {
    using Kind = host::Failure::Kind;
    switch (failure.kind) {
    case Kind::engine:
        throw Trouble("torrent engine: " + failure.reason);
    case Kind::database:
        throw Trouble("thumbnail database: " + failure.reason);
    case Kind::folder:
        if (isFull(failure.status)) {
            throw Trouble("the disk is full: " + failure.reason);
        }
        return;
    case Kind::program:
        if (failure.status < 0 && failure.status != -ETIME && failure.status != -ECANCELED) {
            throw Trouble(failure.program + ": " + failure.reason);
        }
        if (failure.status == kNotConfined || failure.status == kNoSpace || isInterruption(failure.status)) {
            throw Trouble(failure.reason);
        }
        return;
    case Kind::none:
        return;
    }
}

/// The file as it is now, never tried.
FailedFile fileNow(const SeenTask& seen, const Thumbnail& record, const Json::Value& item) {
    FailedFile file;
    file.task = seen.task;
    file.fileIndex = record.file_index;
    file.path = record.file_path;
    struct stat status = {};
    if (lstat((seen.folder + '/' + record.file_path).c_str(), &status) == 0) {
        constexpr std::int64_t kNanosecondsPerSecond = 1000000000;
        file.size = status.st_size;
        file.changed = status.st_mtim.tv_sec * kNanosecondsPerSecond + status.st_mtim.tv_nsec;
    }
    file.bytes = toInt64(member(item, "bytesCompleted"));
    return file;
}

bool isWhole(const Json::Value& item) {
    return toInt64(member(item, "bytesCompleted")) == toInt64(member(item, "length"));
}

/// Is the file another one than it was when it failed? One that grows is, when it has a tenth more.
bool hasChanged(const FailedFile& before, const FailedFile& now, bool isWhole) {
    constexpr std::int64_t kTenth = 10;
    return before.path != now.path ||
           (isWhole ? before.size != now.size || before.changed != now.changed
                    : now.bytes < before.bytes || now.bytes - before.bytes > before.bytes / kTenth);
}

bool isTriedNow(const FailedFile& before, const FailedFile& file, bool isWhole, std::time_t now) {
    if (now < before.triedAt || now >= before.nextTry()) { // the clock may have been set back
        return true;
    }
    return hasChanged(before, file, isWhole) &&
           (isWhole || before.path != file.path || now - before.triedAt >= kBetweenLooks);
}

/// One run for one task.
class TaskRun {
public:
    explicit TaskRun(const SeenTask& seen, Memory& memory)
        : seen_(seen), memory_(memory), generator_(seen.task, false) {}

    void run() try {
        failedBefore_ = memory_.failedFiles(seen_.task);
        host::forgetFailure();
        if (generator_.getTaskFileList(seen_.task) < 0) {
            throwTrouble(host::lastFailure());
            return; // the torrent has gone meanwhile
        }
        removeUntrue();
        std::vector<Thumbnail> list;
        (void)generator_.getThumbnailList(list); // fails while the torrent has no list of files
        host::forgetFailure();
        if (generator_.filterExistThumbnail(list) < 0) {
            throwTrouble(host::lastFailure());
            return;
        }
        makeFiles(list);
        tellMade();
        keep();
    } catch (const Trouble&) {
        tellMade();
        keepForLater();
        throw;
    }

private:
    void removeUntrue() {
        const bool isAnotherTorrent = !seen_.known.hash.empty() && seen_.known.hash != seen_.torrent.hash;
        const Removed removed = isAnotherTorrent ? removeAll(seen_.task, seen_.folder)
                                                 : removeUntrueRows(seen_.task, seen_.folder, generator_.taskFiles);
        if (removed.rows > 0) {
            std::printf("task %d: %d rows removed that were not true any more\n", seen_.task, removed.rows);
        }
    }

    void makeFiles(std::vector<Thumbnail>& list) {
        for (auto begin = list.begin(); begin != list.end();) {
            const auto end = std::find_if(
                begin, list.end(), [&](const Thumbnail& record) { return record.file_index != begin->file_index; });
            const auto before = failedBefore_.find(begin->file_index);
            makeFile({begin, end}, before == failedBefore_.end() ? nullptr : &before->second);
            begin = end;
        }
    }

    void makeFile(std::vector<Thumbnail> records, const FailedFile* before) {
        const Json::Value& item =
            element(member(std::as_const(generator_.taskFiles), "files"), records.front().file_index);
        if (!isWhole(item) && records.front().media_type == VEXODL_MEDIA_TYPE_PHOTO) {
            return; // comes when it is whole
        }
        FailedFile file = fileNow(seen_, records.front(), item);
        const std::time_t now = std::time(nullptr);
        if (before != nullptr && !seen_.wanted && !isTriedNow(*before, file, isWhole(item), now)) {
            failed_.push_back(*before);
            return;
        }
        if (!makePictures(records, file)) {
            if (cutShort_ && before != nullptr) {
                failed_.push_back(*before);
            }
            return;
        }
        const bool isNew = before == nullptr || hasChanged(*before, file, isWhole(item));
        file.triedAt = now;
        file.tries = isNew ? 1 : before->tries + 1;
        if (isWhole(item) && (isNew || before->reason != file.reason)) {
            std::printf("task %d: failed: %s: %s\n", seen_.task, shown(file.path).c_str(), shown(file.reason).c_str());
        }
        failed_.push_back(std::move(file));
    }

    /// @return whether one failed; `file` has the reason then.
    bool makePictures(const std::vector<Thumbnail>& records, FailedFile& file) {
        bool failed = false;
        for (const Thumbnail& record : records) {
            if (std::chrono::steady_clock::now() > deadline_) {
                cutShort_ = true;
                break;
            }
            host::forgetFailure();
            std::vector<Thumbnail> one = {record};
            if (generator_.generateThumbnailByList(one) == 0) {
                ++made_;
                continue;
            }
            const host::Failure failure = host::lastFailure();
            throwTrouble(failure);
            if (failure.kind == host::Failure::Kind::none) {
                (void)downloadFolder(); // throws when the area cannot be written any more
            }
            failed = true;
            file.reason = reasonOf(failure, seen_.folder + '/' + file.path);
            if (failure.program == kDurationHelper) {
                break; // would tell the same before each frame
            }
        }
        return failed;
    }

    void tellMade() const {
        if (made_ > 0) {
            std::printf("task %d: %d %s made\n", seen_.task, made_, made_ == 1 ? "picture" : "pictures");
        }
    }

    /// The others go first in the next run: the trouble may be with this task alone.
    void keepForLater() {
        KnownTask known = seen_.known;
        known.stamp.clear();
        known.triedAt = std::time(nullptr);
        std::vector<FailedFile> failed;
        for (const auto& [index, file] : failedBefore_) {
            failed.push_back(file);
        }
        memory_.keepTask(seen_.task, known, failed);
    }

    void keep() {
        KnownTask known;
        known.hash = seen_.torrent.hash;
        FolderLook look = seen_.look; // the files as they were before they were tried
        look.pictures = lookAt(seen_.folder).pictures;
        if (!cutShort_) {
            known.stamp = stampOf(seen_.torrent, look, static_cast<int>(rowsOf(seen_.task).size()));
        }
        known.haveValid = seen_.torrent.haveValid;
        known.triedAt = std::time(nullptr);
        for (const FailedFile& file : failed_) {
            known.nextTry = known.nextTry == 0 ? file.nextTry() : std::min(known.nextTry, file.nextTry());
        }
        memory_.keepTask(seen_.task, known, failed_);
    }

    const SeenTask& seen_;
    Memory& memory_;
    ThumbnailGenerator generator_;
    std::chrono::steady_clock::time_point deadline_ = std::chrono::steady_clock::now() + kLongestRun;
    std::map<int, FailedFile> failedBefore_;
    std::vector<FailedFile> failed_;
    int made_ = 0;
    bool cutShort_ = false;
};

} // namespace

std::string stampOf(const host::TaskTorrent& torrent, const FolderLook& look, int rows) {
    std::string stamp = torrent.hash;
    for (const std::uint64_t number :
         {static_cast<std::uint64_t>(torrent.sizeWhenDone), static_cast<std::uint64_t>(torrent.wantedFiles),
          static_cast<std::uint64_t>(torrent.leftUntilDone == 0 ? 1 : 0), look.files, look.pictures,
          static_cast<std::uint64_t>(rows)}) {
        stamp += ' ' + std::to_string(number);
    }
    return stamp;
}

bool isDue(const SeenTask& seen, int rows, std::time_t now) {
    const KnownTask& known = seen.known;
    const bool hasGrown = known.haveValid != seen.torrent.haveValid && now - known.triedAt >= kBetweenLooks;
    return seen.wanted || known.stamp != stampOf(seen.torrent, seen.look, rows) || hasGrown || now < known.triedAt ||
           (known.nextTry != 0 && now >= known.nextTry);
}

void runTask(const SeenTask& seen, Memory& memory) {
    const auto whenHeld = seen.wanted ? TaskLock::WhenHeld::wait : TaskLock::WhenHeld::giveUp;
    if (const auto lock = TaskLock::take(seen.task, whenHeld)) {
        TaskRun(seen, memory).run();
    }
}

void sweepTask(int task, const std::string& folder, Memory& memory) {
    const auto lock = TaskLock::take(task, TaskLock::WhenHeld::giveUp);
    if (lock && holdsOnlyPictures(task, folder)) {
        (void)removeAll(task, folder);
        (void)rmdir(folder.c_str());
        memory.forget(task);
        std::printf("task %d: swept, its torrent is gone\n", task);
    }
}

} // namespace server
