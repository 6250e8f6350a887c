#include "programs/picture/newPicture.h"

#include "programs/picture/jpegFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>

namespace {

constexpr std::string_view kHiddenPrefix = ".newPicture.";

/// Whether a name is ".newPicture.PROCESS.ATTEMPT", two numbers.
bool isHiddenName(std::string_view name) {
    if (name.substr(0, kHiddenPrefix.size()) != kHiddenPrefix) {
        return false;
    }
    name.remove_prefix(kHiddenPrefix.size());
    const std::size_t point = name.find('.');
    const auto isNumber = [](std::string_view text) {
        return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
    };
    return point != std::string_view::npos && isNumber(name.substr(0, point)) && isNumber(name.substr(point + 1));
}

/// Removes a hidden file whose maker has died. A living maker, and its worker, hold a lock on theirs.
void removeIfAbandoned(int directory, const char* name) {
    const Descriptor file(openat(directory, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    if (file && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
        flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
        unlinkat(directory, name, 0);
    }
}

void removeAbandoned(int directory) {
    const int copy = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(copy >= 0 ? fdopendir(copy) : nullptr, &closedir);
    if (!listing) {
        return;
    }
    while (const dirent* entry = readdir(listing.get())) { // NOLINT(concurrency-mt-unsafe): a listing of its own
        if (isHiddenName(entry->d_name)) {
            removeIfAbandoned(directory, entry->d_name);
        }
    }
}

} // namespace

NewPicture::NewPicture(const Descriptor& directory, std::string name) : directory_(directory), name_(std::move(name)) {
    constexpr int kAttempts = 100;
    removeAbandoned(directory_.get());
    for (int attempt = 0; attempt < kAttempts && !file_; ++attempt) {
        hiddenName_ = std::string(kHiddenPrefix) + std::to_string(getpid()) + '.' + std::to_string(attempt);
        if (!create() && errno != EEXIST) {
            break;
        }
    }
}

/// EEXIST also where another run took the file for abandoned before it was locked.
bool NewPicture::create() {
    Descriptor file(openat(directory_.get(), hiddenName_.c_str(),
                           O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, 0644));
    if (!file) {
        return false;
    }
    struct stat status = {};
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0 || fstat(file.get(), &status) != 0 || status.st_nlink == 0) {
        errno = EEXIST;
        return false;
    }
    file_ = std::move(file);
    return true;
}

NewPicture::~NewPicture() {
    if (file_ && !hiddenName_.empty()) {
        unlinkat(directory_.get(), hiddenName_.c_str(), 0);
    }
    removeAbandoned(directory_.get()); // the makers that were dying still when this one began
}

bool NewPicture::isComplete() const {
    struct stat status = {};
    if (fstat(file_.get(), &status) != 0 || status.st_size > static_cast<off_t>(kMostPictureBytes)) {
        return false;
    }
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    return pread(file_.get(), bytes.data(), bytes.size(), 0) == status.st_size && isWholeJpeg(bytes);
}

bool NewPicture::publish() {
    if (renameat(directory_.get(), hiddenName_.c_str(), directory_.get(), name_.c_str()) != 0) {
        return false;
    }
    hiddenName_.clear();
    return fsync(directory_.get()) == 0;
}
