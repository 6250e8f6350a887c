// Compares what pictures of photos show with what was drawn: our program's, stock convert's and vipsthumbnail's.
//
//   photoColours [COUNT]
//
// For the private root. Prints a Markdown table of the mean and the worst error of each, or of the first
// COUNT.

#include "benchmarks/photoSamples.h"
#include "tests/programs/programRun.h"

#include <cstdio>

namespace {

const fs::path kTask = "/srv/download/7";
const fs::path kPhoto = kTask / "photo";
const fs::path kPicture = kTask / "vexodlthumbnail" / "picture.jpg";

/// Of our program, stock convert and vipsthumbnail.
using Errors = std::array<ColourError, 3>;

ColourError errorOf(const std::vector<std::string>& command, const Chart& chart, Turn turn) {
    runProgram(command);
    const Picture picture(readFile(kPicture));
    fs::remove(kPicture);
    return colourError(picture, chart, turn);
}

Errors errors(const Chart& chart, Turn turn = Turn::none) {
    auto peer = words("vipsthumbnail --size 1024x1024> --import-profile srgb --export-profile srgb -o");
    peer.push_back(kPicture.string() + "[Q=90]");
    peer.push_back(kPhoto);
    return {errorOf(thumbCommand("/usr/vexo/bin/convert-thumb", kPhoto, kPicture), chart, turn),
            errorOf(thumbCommand("/usr/bin/convert", kPhoto, kPicture), chart, turn), errorOf(peer, chart, turn)};
}

void printRow(const std::string& name, const Errors& errors) {
    std::printf("| %s |", name.c_str());
    for (const ColourError& error : errors) {
        if (error.mean == 100) {
            std::printf(" none |");
        } else {
            std::printf(" %.1f / %.1f |", error.mean, error.worst);
        }
    }
    std::printf("\n");
}

/// The largest errors of all eight.
Errors errorsOfTurns(const std::string& format) {
    const bool ignored = format.find(" exif") != std::string::npos;
    Errors largest = {};
    for (int i = 1; i <= 8; ++i) {
        const auto turn = static_cast<Turn>(i);
        makeTurnedPhoto(kPhoto, format, turn);
        const Errors found = errors(knownColours(), ignored ? Turn::none : turn);
        std::transform(largest.begin(), largest.end(), found.begin(), largest.begin(),
                       [](const auto& one, const auto& other) { return one.worst > other.worst ? one : other; });
    }
    return largest;
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 2) {
        std::fputs("usage: photoColours [COUNT]\n", stderr);
        return 2;
    }
    const std::size_t count = argc == 2 ? std::strtoul(argv[1], nullptr, 10) : knownPhotos().size();
    fs::create_directories(kPicture.parent_path());
    std::printf("| | our convert-thumb | stock convert | vipsthumbnail |\n|---|---|---|---|\n");
    for (std::size_t i = 0; i < std::min(count, knownPhotos().size()); ++i) {
        makePhoto(kPhoto, knownPhotos()[i]);
        printRow(knownPhotos()[i].name, errors(chartOf(knownPhotos()[i])));
    }
    if (argc == 1) {
        for (const std::string& format : turningFormats()) {
            printRow("orientations 1 to 8, " + format, errorsOfTurns(format));
        }
    }
    fs::remove(kPhoto);
    return testing::UnitTest::GetInstance()->Failed() ? 1 : 0;
}
