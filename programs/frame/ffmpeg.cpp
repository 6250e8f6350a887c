// ffmpeg: makes the JPEG picture of one second of one video.
//
//   ffmpeg -ss SECOND -timelimit LIMIT -i VIDEO -vf FILTER -y -vframes 1 -an -qscale:v 1 -f mjpeg PICTURE
//
// Takes exactly this command line. PICTURE is TASK/FOLDER/NAME and VIDEO lies below TASK. The picture is the first
// intra-coded frame at or after SECOND, or the last one before it when none follows, as a player shows it, with at most
// 1080 pixels; FILTER says the same in short. Of a VIDEO whose name ends in .part bytes may be missing. frameDecoder
// does the work, confined, and never sees a name. Exit status: ExitStatus in diagnosis.h.

#include "programs/front/diagnosis.h"
#include "programs/front/taskInput.h"
#include "programs/picture/newPicture.h"
#include "programs/picture/pictureFront.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

/// The words of the command line after the program's name; a null one is a value.
constexpr std::array<const char*, 17> kWords = {
    "-ss",        nullptr,
    "-timelimit", nullptr,
    "-i",         nullptr,
    "-vf",        R"(select=eq(pict_type\,I),scale='if(gt(a,1),min(1080,iw),-1)':'if(gt(a,1),-1,min(1080,ih))')",
    "-y",         "-vframes",
    "1",          "-an",
    "-qscale:v",  "1",
    "-f",         "mjpeg",
    nullptr};
constexpr int kSecond = 2;
constexpr int kLimit = 4;
constexpr int kVideo = 6;
constexpr int kPicture = 17;

bool isExpected(int argc, char** argv) {
    return argc == 1 + static_cast<int>(kWords.size()) &&
           std::equal(kWords.begin(), kWords.end(), argv + 1, [](const char* word, const char* argument) {
               return word == nullptr || std::strcmp(word, argument) == 0;
           });
}

/// A whole number of at most nine digits, or -1.
int number(std::string_view text) {
    constexpr std::size_t kMostDigits = 9;
    int value = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc() && end == text.data() + text.size() && text.size() <= kMostDigits;
    return whole && value >= 0 ? value : -1;
}

Worker frameWorker(const char* second, int limit, bool unfinished) {
    constexpr rlim_t kMostBytes = std::uint64_t{2} << 30U;
    constexpr rlim_t kMostSeconds = 15;
    Worker worker = {{VEXODL_FRAME_DECODER, second}, {kMostBytes, kMostSeconds, kMostPictureBytes}};
    if (unfinished) {
        worker.argv.emplace_back("unfinished");
    }
    worker.deadlineSeconds = static_cast<unsigned>(std::max(1, std::min(limit, 300)));
    return worker;
}

} // namespace

int main(int argc, char** argv) {
    if (!isExpected(argc, argv) || number(argv[kSecond]) < 0 || number(argv[kLimit]) < 1) {
        dprintf(STDERR_FILENO,
                "usage: ffmpeg -ss SECOND -timelimit LIMIT -i VIDEO -vf '%s' -y -vframes 1 -an -qscale:v 1 -f mjpeg "
                "PICTURE\n",
                kWords[7]);
        return kUsage;
    }
    Worker worker = frameWorker(argv[kSecond], number(argv[kLimit]), isUnfinished(argv[kVideo]));
    return makePicture({"ffmpeg", argv[kVideo], argv[kPicture]}, [&](int) { return worker; });
}
