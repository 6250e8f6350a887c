#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/// Red, green and blue, in the primaries of sRGB unless told otherwise.
using Colour = std::array<double, 3>;

/// Colours as light: 1 is white paper, which is 203 cd/m2 on a screen of high range.
using Chart = std::vector<Colour>;

/// The 40 that the films show in rows of eight; from black to white for a grey film. No turned chart is like it.
Chart knownColours(bool grey = false);

/// What a screen of these primaries and this curve, by ffmpeg's names, gets of a colour: in 0..1, before the matrix.
Colour signalOf(const Colour& light, const std::string& primaries, const std::string& curve);

struct Film {
    std::string name;
    std::string pixels; ///< ffmpeg's name of the pixel format
    std::string
        colours; ///< matrix, primaries, curve and range by ffmpeg's names; "untagged" behind when the film hides them
    std::string encoder; ///< ffmpeg's options for the output, which is Matroska without another -f
    int width = 320;
    int height = 200;
};

/// Which colour of a chart is where, in pixels, in a frame.
using Drawing = std::function<std::size_t(int x, int y, int frame)>;

/// An edge that moves by 8 pixels from field to field, the first colour on its left. The field of the lines of the
/// given parity comes first.
Drawing movingEdge(int firstField);

/// Makes a film of 30 frames with stock ffmpeg. Their values are computed here, rounded once, and converted by no one.
///
/// @param drawing  without one, eight patches in a row
void makeFilm(const std::string& path, const Film& film, const Chart& chart, const Drawing& drawing = nullptr);

/// How a picture is turned against the drawing, by the numbers of Exif. From 5 on across and down are swapped, then
/// they are mirrored or flipped.
enum class Turn { none = 1, mirrored, around, flipped, swapped, right, swappedAround, left };

/// A JPEG as a browser reads it.
struct Picture {
    explicit Picture(const std::string& jpeg);

    /// What one of the 40 patches has in its middle, in 0..1.
    [[nodiscard]] Colour patch(std::size_t number, Turn turn = Turn::none) const;

    /// In 0..255.
    [[nodiscard]] int red(int x, int y) const { return rgb[static_cast<std::size_t>(3 * (y * width + x))]; }

    int width = 0; ///< 0 when there is no picture
    int height = 0;
    std::vector<unsigned char> rgb;
};

/// In CIEDE2000; 100 without a picture.
struct ColourError {
    double mean;
    double worst;
    std::size_t patch; ///< the worst one
};

ColourError colourError(const Picture& picture, const Chart& chart, Turn turn = Turn::none);

/// The most by which a moving edge of white and black is off from one line to the next, in pixels of the picture;
/// 100 when a line has no such edge.
double combing(const Picture& picture);
