// What the programs contain (programs/media/), what is planned as a film (host/mediaIndex.cpp) and what the tests of
// the programs decode (scripts/sampleVideos): one belongs to the other.

#include "platform/mediaIndex.h"
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
    {"avi", {"avi", "divx"}},
    {"dv", {"dv"}},
    {"flv", {"flv"}},
    {"m4v", {"m4v"}},
    {"matroska,webm", {"mkv", "webm"}},
    {"mov,mp4,m4a,3gp,3g2,mj2", {"3g2", "3gp", "f4v", "m4v", "mov", "mp4", "qt"}},
    {"mpeg", {"mpe", "mpeg", "mpg", "vob"}},
    {"mpegts", {"m2t", "m2ts", "mts", "tp", "trp", "ts"}},
    {"mpegvideo", {"m1v", "m2v"}},
    {"mxf", {"mxf"}},
    {"ogg", {"ogm", "ogv"}},
    {"rm", {"rm", "rmvb"}},
    {"wtv", {"wtv"}},
};

/// Adds what is planned as a film: a word, and whatever of at most four letters begins with it.
void addPlanned(const std::string& word, Names& planned) {
    if (BlVEXOIndexIsVideo(word.c_str()) != 0) {
        planned.insert(word);
    }
    for (const char letter : word.size() < 4 ? "abcdefghijklmnopqrstuvwxyz0123456789"s : "") {
        addPlanned(word + letter, planned);
    }
}

/// The container as which the programs read a film.
std::string containerOf(const fs::path& film) {
    std::string head = readFile(film).substr(0, 1 << 16) + std::string(AVPROBE_PADDING_SIZE, '\0');
    const int size = static_cast<int>(head.size()) - AVPROBE_PADDING_SIZE;
    const AVProbeData probe = {"", reinterpret_cast<unsigned char*>(head.data()), size, nullptr};
    const AVInputFormat* format = av_probe_input_format(&probe, 1);
    return format != nullptr ? format->name : "none";
}

TEST(MediaLists, HoldEachContainerWithItsExtensionsAndAFilmToTry) {
    Names planned, tried;
    addPlanned("", planned);
    for (void* place = nullptr; const AVInputFormat* format = av_demuxer_iterate(&place);) {
        EXPECT_EQ(kContainers.count(format->name), 1U)
            << format->name << " is in containerList.cpp, but in no row here";
        std::istringstream more(format->extensions != nullptr ? format->extensions : "");
        for (std::string word; std::getline(more, word, ',');) {
            addPlanned(word, planned);
        }
    }
    for (const auto& film : fs::directory_iterator(std::getenv("VEXODL_SAMPLES"))) {
        tried.insert(containerOf(film));
    }
    for (const auto& [container, itsExtensions] : kContainers) {
        EXPECT_EQ(tried.count(container), 1U) << "the programs read no film of scripts/sampleVideos as " << container;
        for (const std::string& word : itsExtensions) {
            EXPECT_NE(BlVEXOIndexIsVideo(word.c_str()), 0)
                << word << " is in a row here, but not in host/mediaIndex.cpp";
            planned.erase(word);
        }
    }
    EXPECT_EQ(planned, Names()) << "are in host/mediaIndex.cpp, but in no row here";
}

} // namespace
