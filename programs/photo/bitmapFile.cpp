#include "programs/photo/bitmapFile.h"

#include "programs/photo/photoLimits.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <array>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace {

using vips::VImage;

struct Unreference {
    void operator()(void* object) const { g_object_unref(object); }
};
using Loader = std::unique_ptr<GdkPixbufLoader, Unreference>;

Loader bitmapLoader() {
    return Loader(gdk_pixbuf_loader_new_with_type("bmp", nullptr));
}

struct Progress {
    bool tooLarge = false;
    int lines = 0;
};

/// Called before there is memory for the pixels. With no size nothing is decoded.
void checkSize(GdkPixbufLoader* loader, int width, int height, Progress* progress) {
    progress->tooLarge = hasTooManyPixels(width, height);
    if (progress->tooLarge) {
        gdk_pixbuf_loader_set_size(loader, 0, 0);
    }
}

void countLines(GdkPixbufLoader* /*unused*/, int /*x*/, int /*y*/, int /*width*/, int height, Progress* progress) {
    progress->lines += height;
}

/// Up to the end or the first fault.
void feed(GdkPixbufLoader* loader, const vips::VSource& source, GError** error) {
    std::array<guchar, 65536> block = {};
    gint64 count = 0;
    do {
        count = vips_source_read(source.get_source(), block.data(), block.size());
    } while (count > 0 && gdk_pixbuf_loader_write(loader, block.data(), static_cast<gsize>(count), error) != 0);
    gdk_pixbuf_loader_close(loader, *error == nullptr ? error : nullptr);
}

/// The pixels stay where they are; `pixels` has to outlive the image. Its lines may be longer than the picture's.
VImage imageOn(GdkPixbuf* pixels) {
    const int bands = gdk_pixbuf_get_n_channels(pixels);
    const int height = gdk_pixbuf_get_height(pixels);
    const int stride = gdk_pixbuf_get_rowstride(pixels);
    const std::size_t size = static_cast<std::size_t>(stride) * static_cast<std::size_t>(height);
    return VImage::new_from_memory(gdk_pixbuf_get_pixels(pixels), size, stride, height, 1, VIPS_FORMAT_UCHAR)
        .crop(0, 0, gdk_pixbuf_get_width(pixels) * bands, height)
        .bandfold(VImage::option()->set("factor", bands))
        .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

} // namespace

void prepareBitmaps() {
    if (const Loader loader = bitmapLoader()) {
        gdk_pixbuf_loader_close(loader.get(), nullptr);
    }
}

bool isBitmap(const vips::VSource& source) {
    const unsigned char* const mark = vips_source_sniff(source.get_source(), 2);
    return mark != nullptr && std::memcmp(mark, "BM", 2) == 0;
}

VImage readBitmap(const vips::VSource& source) {
    const Loader loader = bitmapLoader();
    if (!loader) {
        throw std::runtime_error("there is no decoder of BMP files");
    }
    Progress progress;
    GError* error = nullptr;
    g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(checkSize), &progress);
    g_signal_connect(loader.get(), "area-updated", G_CALLBACK(countLines), &progress);
    vips_source_rewind(source.get_source());
    feed(loader.get(), source, &error);
    const std::unique_ptr<GError, void (*)(GError*)> errorOwner(error, g_error_free);
    if (progress.tooLarge) {
        throw LimitReached(kTooManyPixels);
    }
    if (error != nullptr) {
        throw std::runtime_error(error->message);
    }
    GdkPixbuf* const pixels = gdk_pixbuf_loader_get_pixbuf(loader.get());
    requireMostLines(progress.lines, pixels == nullptr ? 1 : gdk_pixbuf_get_height(pixels));
    g_object_ref(pixels); // to the end: the image reads them
    return imageOn(pixels);
}
