#include "programs/photo/jpegPhoto.h"

#include "programs/front/diagnosis.h"
#include "programs/photo/exifOrientation.h"
#include "programs/photo/photoLimits.h"

#include <jerror.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

namespace {

constexpr unsigned kBlock = DCTSIZE;
constexpr int kExif = JPEG_APP0 + 1;
constexpr int kProfile = JPEG_APP0 + 2;
constexpr const char* kCutShort = "the picture is cut short or damaged";

[[noreturn]] void endWith(ExitStatus status, const char* reason) {
    (void)std::fprintf(stderr, "%s\n", reason);
    std::exit(status); // NOLINT(concurrency-mt-unsafe): one thread
}

} // namespace

JpegPhoto::JpegPhoto(FILE* file) {
    constexpr unsigned kWholeMarker = 0xFFFF;
    jpeg_.err = jpeg_std_error(&errors_);
    errors_.error_exit = fail;
    errors_.emit_message = heed;
    jpeg_create_decompress(&jpeg_);
    jpeg_.client_data = this;
    progress_.progress_monitor = countScans;
    jpeg_.progress = &progress_;
    jpeg_stdio_src(&jpeg_, file);
    jpeg_save_markers(&jpeg_, kExif, kWholeMarker);
    jpeg_save_markers(&jpeg_, kProfile, kWholeMarker);
    jpeg_read_header(&jpeg_, TRUE);
    if (colours() == JCS_UNKNOWN) {
        endWith(kNoPicture, "the colours are of no known kind");
    }
    if (hasTooManyPixels(width(), height())) {
        endWith(kLimitReached, kTooManyPixels);
    }
}

void JpegPhoto::fail(j_common_ptr jpeg) {
    if (jpeg->err->msg_code == JERR_OUT_OF_MEMORY) {
        endWith(kLimitReached, "the memory limit was reached");
    }
    std::array<char, JMSG_LENGTH_MAX> text = {};
    jpeg->err->format_message(jpeg, text.data());
    endWith(kNoPicture, text.data());
}

/// Ends at the first loss that is too much: what a decoder has no data for it shows as grey.
void JpegPhoto::heed(j_common_ptr jpeg, int level) {
    constexpr std::array kLosses = {JWRN_HIT_MARKER, JWRN_HUFF_BAD_CODE, JWRN_ARITH_BAD_CODE, JWRN_MUST_RESYNC};
    const JpegPhoto& photo = of(jpeg);
    const int code = jpeg->err->msg_code;
    const bool lost = std::find(kLosses.begin(), kLosses.end(), code) != kLosses.end() ||
                      (code == JWRN_JPEG_EOF && photo.jpeg_.arith_code != 0); // others read ahead of what they need
    if (level < 0 && lost && !photo.showsEnough()) {
        endWith(kNoPicture, kCutShort);
    }
}

/// A scan costs time and hardly a byte.
void JpegPhoto::countScans(j_common_ptr jpeg) {
    constexpr int kMostScans = 100;
    if (of(jpeg).jpeg_.input_scan_number > kMostScans) {
        endWith(kLimitReached, "the limit of 100 scans was reached");
    }
}

bool JpegPhoto::hasAllComponents() const {
    return std::all_of(jpeg_.comp_info, jpeg_.comp_info + jpeg_.num_components,
                       [](const jpeg_component_info& component) { return component.quant_table != nullptr; });
}

/// Whether nine of ten lines are there, or of a progressive photo its first scan.
bool JpegPhoto::showsEnough() const {
    const unsigned wantedTenths = jpeg_.progressive_mode ? 10 : 9;
    const bool refines = jpeg_.progressive_mode && (jpeg_.Ss > 0 || jpeg_.Ah > 0);
    return hasAllComponents() && (refines || 10 * jpeg_.input_iMCU_row >= wantedTenths * jpeg_.total_iMCU_rows);
}

std::vector<unsigned char> JpegPhoto::profile() {
    JOCTET* data = nullptr;
    unsigned size = 0;
    if (!jpeg_read_icc_profile(&jpeg_, &data, &size)) {
        return {};
    }
    const std::unique_ptr<JOCTET, FreeMemory> owner(data);
    return {data, data + size};
}

int JpegPhoto::orientation() const {
    for (const jpeg_marker_struct* marker = jpeg_.marker_list; marker != nullptr; marker = marker->next) {
        const int found = marker->marker == kExif ? exifOrientation(marker->data, marker->data_length) : 0;
        if (found != 0) {
            return found;
        }
    }
    return 1;
}

/// Each component's rows of one row of MCUs at a time.
void JpegPhoto::readRows(const std::vector<Component>& components) {
    std::vector<std::vector<JSAMPROW>> rows(components.size());
    std::vector<JSAMPARRAY> image(components.size());
    const auto lines = static_cast<unsigned>(jpeg_.max_v_samp_factor * jpeg_.min_DCT_scaled_size);
    for (unsigned mcuRow = 0; jpeg_.output_scanline < jpeg_.output_height; ++mcuRow) {
        for (std::size_t i = 0; i < components.size(); ++i) {
            const jpeg_component_info& info = jpeg_.comp_info[i];
            rows[i].resize(static_cast<unsigned>(info.v_samp_factor) * static_cast<std::size_t>(info.DCT_scaled_size));
            for (std::size_t y = 0; y < rows[i].size(); ++y) {
                rows[i][y] = components[i].samples.row<JSAMPLE>(0, mcuRow * rows[i].size() + y);
            }
            image[i] = rows[i].data();
        }
        jpeg_read_raw_data(&jpeg_, image.data(), lines);
    }
}

std::vector<Component> JpegPhoto::decode(unsigned eighths) {
    jpeg_.scale_num = eighths;
    jpeg_.scale_denom = kBlock;
    jpeg_.raw_data_out = TRUE;
    jpeg_start_decompress(&jpeg_);
    std::vector<Component> components;
    for (const auto* info = jpeg_.comp_info; info < jpeg_.comp_info + jpeg_.num_components; ++info) {
        const auto samples = static_cast<unsigned>(info->DCT_scaled_size);
        const auto part = [&](unsigned side, int factor, int largest) {
            return static_cast<double>(side) * factor * samples / largest / kBlock;
        };
        const unsigned height = jpeg_.total_iMCU_rows * static_cast<unsigned>(info->v_samp_factor) * samples;
        components.push_back({PlanarPicture(screenFormat(info->width_in_blocks * samples, height, ZIMG_COLOR_GREY)),
                              part(width(), info->h_samp_factor, jpeg_.max_h_samp_factor),
                              part(this->height(), info->v_samp_factor, jpeg_.max_v_samp_factor)});
    }
    readRows(components);
    if (!hasAllComponents()) {
        endWith(kNoPicture, kCutShort);
    }
    return components;
}
