// Holds the pictures of photos to what a viewer that knows about colours shows.

#include "benchmarks/photoSamples.h"
#include "tests/programs/programRun.h"

namespace {

struct PhotoChart : PictureTest {
    Picture shown() {
        const std::string jpeg = made(thumbCommand("/usr/vexo/bin/convert-thumb", photo, picture));
        for (const std::string& unwanted : {"Exif"s, "ICC_PROFILE"s, "\3\1\x22"s}) { // the last leaves out colours
            EXPECT_EQ(jpeg.substr(0, 400).find(unwanted), std::string::npos) << unwanted;
        }
        return Picture(jpeg);
    }

    const fs::path photo = task / "photo";
};

TEST_F(PhotoChart, ShowsTheColoursOfEveryFormatAndProfile) {
    for (const Photo& known : knownPhotos()) {
        makePhoto(photo, known);
        const ColourError error = colourError(shown(), chartOf(known));
        EXPECT_LE(error.mean, known.colours == "CMYK" ? 3 : 0.7) << known.name << run.errors;
        if (known.colours != "CMYK") { // whose inks cannot show all of them
            EXPECT_LE(error.worst, 3) << known.name << ", patch " << error.patch;
        }
        // What a progressive photo begins with shows all of it; most of a file of inks is their profile.
        if (known.encoder.find("progressive") == std::string::npos && known.colours != "CMYK") {
            fs::resize_file(photo, fs::file_size(photo) / 2);
            EXPECT_EQ(shown().width, 0) << known.name;
        }
    }
}

TEST_F(PhotoChart, TurnsThePictureUpright) {
    for (const std::string& format : turningFormats()) {
        const bool ignored = format.find(" exif") != std::string::npos;
        for (int i = 1; i <= 8; i += ignored ? 5 : 1) {
            const auto turn = static_cast<Turn>(i);
            makeTurnedPhoto(photo, format, turn);
            const ColourError error = colourError(shown(), knownColours(), ignored ? Turn::none : turn);
            EXPECT_LE(error.worst, 4) << format << " " << i << run.errors;
        }
    }
}

} // namespace
