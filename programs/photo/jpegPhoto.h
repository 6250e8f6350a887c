#pragma once

#include "programs/colour/planarPicture.h"

#include <cstdio>

#include <jpeglib.h>

#include <vector>

/// The samples of one component, at a fraction of the photo's size. The memory reaches beyond them.
struct Component {
    PlanarPicture samples;
    double width; ///< of the photo within them
    double height;
};

/// A JPEG photo, read forward from a file once.
///
/// What cannot be decoded ends this program, with the reason on standard error: libjpeg's errors have no way back.
class JpegPhoto {
public:
    /// Reads the header.
    explicit JpegPhoto(FILE* file);
    JpegPhoto(const JpegPhoto&) = delete;
    JpegPhoto& operator=(const JpegPhoto&) = delete;
    ~JpegPhoto() { jpeg_destroy_decompress(&jpeg_); }

    [[nodiscard]] unsigned width() const { return jpeg_.image_width; }
    [[nodiscard]] unsigned height() const { return jpeg_.image_height; }
    [[nodiscard]] J_COLOR_SPACE colours() const { return jpeg_.jpeg_color_space; }
    [[nodiscard]] bool fromAdobe() const { return jpeg_.saw_Adobe_marker != 0; } ///< its inks are inverted
    [[nodiscard]] std::vector<unsigned char> profile();                          ///< empty without one
    [[nodiscard]] int orientation() const;                                       ///< EXIF's number, 1 to 8

    /// Decodes all components at so many eighths of the photo's size, or those with fewer samples at more.
    std::vector<Component> decode(unsigned eighths);

private:
    static JpegPhoto& of(j_common_ptr jpeg) { return *static_cast<JpegPhoto*>(jpeg->client_data); }
    static void fail(j_common_ptr jpeg);
    static void heed(j_common_ptr jpeg, int level);
    static void countScans(j_common_ptr jpeg);

    void readRows(const std::vector<Component>& components);
    [[nodiscard]] bool hasAllComponents() const;
    [[nodiscard]] bool showsEnough() const;

    jpeg_decompress_struct jpeg_ = {};
    jpeg_error_mgr errors_ = {};
    jpeg_progress_mgr progress_ = {};
};
