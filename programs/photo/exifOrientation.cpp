#include "programs/photo/exifOrientation.h"

#include <libexif/exif-data.h>

#include <memory>

int exifOrientation(const unsigned char* data, std::size_t size) {
    constexpr int kMost = 8;
    const std::unique_ptr<ExifData, void (*)(ExifData*)> exif(
        exif_data_new_from_data(data, static_cast<unsigned>(size)), exif_data_unref);
    const ExifEntry* entry = exif ? exif_content_get_entry(exif->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION) : nullptr;
    if (entry == nullptr || entry->format != EXIF_FORMAT_SHORT || entry->size < sizeof(ExifShort)) {
        return 0;
    }
    const int number = exif_get_short(entry->data, exif_data_get_byte_order(exif.get()));
    return number <= kMost ? number : 0;
}
