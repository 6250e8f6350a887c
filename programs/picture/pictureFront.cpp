#include "programs/picture/pictureFront.h"

#include "programs/front/diagnosis.h"
#include "programs/front/taskInput.h"
#include "programs/picture/newPicture.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace {

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string systemError(const char* what) {
    return std::string(what) + ": " + std::strerror(errno); // NOLINT(concurrency-mt-unsafe): one thread
}

int fail(const PictureOrder& order, ExitStatus status, const std::string& what) {
    report(order.program, order.source, what);
    return status;
}

bool isFull(int error) {
    return error == ENOSPC || error == EDQUOT;
}

/// Whether there is no room for a picture. The hidden file has not to be kept.
bool lacksSpace(const NewPicture& picture) {
    constexpr off_t kRoom = 1048576;
    return isFull(posix_fallocate(picture.descriptor().get(), 0, kRoom));
}

int failToStore(const PictureOrder& order, const char* what) {
    return fail(order, isFull(errno) ? kNoSpace : kBadOutput, systemError(what));
}

int failByOutcome(const PictureOrder& order, const Outcome& outcome) {
    const std::string said = outcome.said.empty() ? "" : ": " + outcome.said;
    if (!outcome.limit().empty()) {
        return fail(order, kLimitReached, outcome.limit() + " was reached" + said);
    }
    switch (outcome.end) {
    case Outcome::End::notConfined:
        return fail(order, kNotConfined, "no decoder that is confined" + said);
    case Outcome::End::interrupted:
        (void)fail(order, kEndedBySignal, "ended by signal " + std::to_string(outcome.status));
        return kEndedBySignal + outcome.status;
    case Outcome::End::killed:
        return fail(order, kNoPicture, "the decoder died of signal " + std::to_string(outcome.status) + said);
    default:
        return fail(order, outcome.status == kLimitReached ? kLimitReached : kNoPicture, "no picture" + said);
    }
}

int makeIn(const PictureOrder& order, const Descriptor& input, const Worker& worker, NewPicture& picture) {
    const Outcome outcome = runWorker(worker, input.get(), picture.descriptor().get());
    const bool isComplete = outcome.succeeded() && picture.isComplete();
    if (!isComplete && outcome.end == Outcome::End::exited && lacksSpace(picture)) {
        return fail(order, kNoSpace, "no space for the picture");
    }
    if (!outcome.succeeded()) {
        return failByOutcome(order, outcome);
    }
    if (!isComplete) {
        return fail(order, kNoPicture, "the decoder wrote no whole picture");
    }
    errno = outcome.storeError;
    if (errno == 0 && picture.publish()) {
        return kMade;
    }
    return errno == EISDIR ? fail(order, kBadOutput, "a directory has the picture's name")
                           : failToStore(order, "cannot store the picture");
}

} // namespace

int makePicture(const PictureOrder& order, const WorkerChoice& chooseWorker) {
    const std::string folder = parentOf(order.target);
    const std::string task = parentOf(folder);
    if (task.empty()) {
        return fail(order, kUsage, "the picture's name is not TASK/FOLDER/NAME");
    }
    prepareProcess();
    const Descriptor taskDirectory = openTaskDirectory(task);
    const Descriptor input = openTaskInput(taskDirectory, pathBelow(task, order.source));
    if (!input) {
        return fail(order, kBadInput, systemError("cannot open it as a regular file of the task"));
    }
    struct stat status = {};
    if (fstat(input.get(), &status) != 0 || static_cast<std::uint64_t>(status.st_size) > order.mostBytes) {
        return fail(order, kLimitReached, "the limit of " + std::to_string(order.mostBytes) + " bytes was reached");
    }
    const Descriptor pictures = openBelow(taskDirectory, pathBelow(task, folder), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    NewPicture picture(pictures, order.target.substr(folder.size() + 1));
    if (!picture.descriptor()) {
        return failToStore(order, "cannot write into the folder of the picture");
    }
    return makeIn(order, input, chooseWorker(input.get()), picture);
}
