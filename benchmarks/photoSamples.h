#pragma once

#include "benchmarks/chart.h"

/// A photo of the known colours, 320x200.
struct Photo {
    std::string name;
    /// sRGB, P3, AdobeRGB, ProPhoto, CMYK; inks: CMYK as a browser reads it without a profile; PQ and HLG: those
    /// of films, with BT.2020; grey, gamma22, dotGain: without colours.
    std::string colours;
    int depth;
    /// A shell command that makes the file `photo` of photo.pam or photo.png and, if it has to be in it, photo.icc; or
    /// "jpeg" with words: rgb, cmyk or ycck, 2x1 or the like, progressive, arithmetic, plain, icc.
    std::string encoder;
};

/// Every format, with the profiles and the ways of storing that it has.
const std::vector<Photo>& knownPhotos();

/// What a photo should show.
Chart chartOf(const Photo& photo);

/// Makes the photo, in the working directory too. Its values are computed here, rounded once, and converted by no one.
void makePhoto(const std::string& path, const Photo& photo);

/// The formats that can tell how the stored picture is to be turned. "heic exif" and the like tell it only where it
/// does not count.
const std::vector<std::string>& turningFormats();

/// Makes an upright chart that is to be shown turned.
void makeTurnedPhoto(const std::string& path, const std::string& format, Turn turn);
