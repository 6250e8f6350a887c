// What the programs contain (programs/media/), what is planned as a film (host/mediaIndex.h) and what the tests of
// the programs decode (scripts/sampleVideos): one belongs to the other.

#include "host/mediaIndex.h"
#include "tests/programs/programRun.h"

#include <map>
#include <set>

extern "C" {
#include <libavformat/avformat.h>
}

namespace {

using Names = std::set<std::string>;

/// Each container of the programs by its name in libav, and the extensions of its films.
const std::map<std::string, Names> kContainers = {
    {"asf", {"asf", "dvr-ms", "wmv"}},
    {"avi", {"amv", "avi", "divx"}},
    {"dv", {"dv"}},
    {"flv", {"flv"}},
    {"h264", {"264", "h264"}},
    {"hevc", {"265", "hevc"}},
    {"ivf", {"ivf"}},
    {"m4v", {"m4v", "mp4v"}},
    {"matroska,webm", {"mk3d", "mkv", "webm"}},
    {"mov,mp4,m4a,3gp,3g2,mj2",
     {"3g2", "3gp", "3gpp", "f4v", "insv", "ismv", "lrv", "m4v", "mov", "mp4", "mp4v", "qt"}},
    {"mpeg", {"m2p", "mod", "mpe", "mpeg", "mpg", "vob"}},
    {"mpegts", {"m2t", "m2ts", "mts", "tod", "tp", "trp", "ts"}},
    {"mpegvideo", {"m1v", "m2v", "mpv"}},
    {"mxf", {"mxf"}},
    {"nut", {"nut"}},
    {"ogg", {"ogm", "ogv"}},
    {"rm", {"rm", "rmvb"}},
    {"wtv", {"wtv"}},
    {"yuv4mpegpipe", {"y4m"}},
};

/// The container as which the programs read a film.
std::string containerOf(const fs::path& film) {
    std::string head = readFile(film).substr(0, 1 << 16) + std::string(AVPROBE_PADDING_SIZE, '\0');
    const int size = static_cast<int>(head.size()) - AVPROBE_PADDING_SIZE;
    const AVProbeData probe = {"", reinterpret_cast<unsigned char*>(head.data()), size, nullptr};
    const AVInputFormat* format = av_probe_input_format(&probe, 1);
    return format != nullptr ? format->name : "none";
}

TEST(MediaLists, HoldEachContainerWithItsExtensionsAndAFilmToTry) {
    Names extensions, tried;
    for (void* place = nullptr; const AVInputFormat* format = av_demuxer_iterate(&place);) {
        EXPECT_EQ(kContainers.count(format->name), 1U)
            << format->name << " is in containerList.cpp, but in no row here";
    }
    for (const auto& film : fs::directory_iterator(std::getenv("VEXODL_SAMPLES"))) {
        tried.insert(containerOf(film));
    }
    for (const auto& [container, itsExtensions] : kContainers) {
        EXPECT_EQ(tried.count(container), 1U) << "the programs read no film of scripts/sampleVideos as " << container;
        extensions.insert(itsExtensions.begin(), itsExtensions.end());
    }
    EXPECT_EQ(Names(host::kVideoExtensions.begin(), host::kVideoExtensions.end()), extensions)
        << "host/mediaIndex.h and the rows here";
}

} // namespace
