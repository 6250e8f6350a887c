// imageDecoder: the small picture of one photo that is no JPEG; a worker of convert-thumb.
//
//   imageDecoder <PHOTO >PICTURE
//
// PHOTO is read by its descriptor, in any order. PICTURE is a JPEG, upright, in sRGB, at most 1024 pixels wide and
// high. It confines itself before it reads. Its word on descriptor 3 (lifeline.h), and then exit status 0, tell that
// PICTURE is whole; else the exit status is another one of ExitStatus in diagnosis.h, with the reason as one line on
// standard error.

#include "programs/confinement/lifeline.h"
#include "programs/front/diagnosis.h"
#include "programs/photo/bitmapFile.h"
#include "programs/photo/photoLimits.h"
#include "programs/photo/smallPicture.h"

#include <gmodule.h>
#include <libheif/heif.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string>

namespace {

/// What the libraries said first: what follows comes of it.
std::string& firstMessage() {
    static std::string message;
    return message;
}

/// In place of GLib's own, which asks the system where the messages go.
GLogWriterOutput keepMessage(GLogLevelFlags level, const GLogField* fields, gsize count, gpointer /*unused*/) {
    for (gsize i = 0; i < count && level <= G_LOG_LEVEL_WARNING && firstMessage().empty(); ++i) {
        if (g_strcmp0(fields[i].key, "MESSAGE") == 0) {
            firstMessage() = static_cast<const char*>(fields[i].value);
        }
    }
    return G_LOG_WRITER_HANDLED;
}

/// Where reasons go. Libraries that print what they find, as libjxl does, do it into memory.
std::FILE* reasons = stderr;

void silenceLibraries() {
    constexpr std::size_t kEnough = 4096; // what does not fit is dropped
    stderr = fmemopen(nullptr, kEnough, "w");
    g_log_set_writer_func(keepMessage, nullptr, nullptr);
}

/// libvips would load all of its modules: two hold the decoders of a format each, and the others are large.
void loadModules() {
    for (const char* const name : {"heif", "jxl"}) {
        const std::string path = std::string(VEXODL_LIBRARY_FOLDER "/vips-modules-") + std::to_string(vips_version(0)) +
                                 '.' + std::to_string(vips_version(1)) + "/vips-" + name + ".so";
        GModule* const module = g_module_open(path.c_str(), G_MODULE_BIND_LAZY);
        if (module != nullptr) {
            g_module_make_resident(module);
        }
    }
}

void allowLoaders() {
    vips_operation_block_set("VipsForeignLoad", TRUE);
    for (const char* const format : {"Png", "Webp", "Tiff", "Nsgif", "Heif", "Jxl", "Jp2k"}) {
        vips_operation_block_set((std::string("VipsForeignLoad") + format).c_str(), FALSE);
    }
}

/// Whether this process may have memory that is executable and writable.
bool canHaveExecutableMemory() {
    constexpr std::size_t kBytes = 1;
    void* const memory = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory != MAP_FAILED && munmap(memory, kBytes) == 0;
}

/// libvips 8.14 writes code for what it shrinks, into executable memory that it takes once and keeps; without any it
/// aborts. So it takes it here, or does without where there is none, which costs a tenth more.
bool startLibvips() {
    const bool canWriteCode = canHaveExecutableMemory();
    if (!canWriteCode) {
        setenv("VIPS_NOVECTOR", "1", 1);
    }
    setenv("VIPSHOME", "/", 1); // no modules there
    if (VIPS_INIT("imageDecoder") != 0) {
        return false;
    }
    vips_cache_set_max(0);
    vips_concurrency_set(1);
    if (canWriteCode) {
        (void)vips::VImage::black(4, 4).reducev(2); // computes nothing, which would start threads
    }
    return true;
}

/// All that opens files: libraries, decoders, the time zone. It comes before the first byte of the photo is read, so
/// that what decodes the photo needs nothing but memory and the two descriptors.
bool prepare() {
    mallopt(M_ARENA_MAX, 1); // to give back memory of another the C library opens a file
    silenceLibraries();
    if (!startLibvips()) {
        return false;
    }
    loadModules();
    allowLoaders();
    heif_init(nullptr);
    tzset();
    prepareBitmaps();
    return true;
}

int fail(ExitStatus status, const std::string& what, const std::string& detail = firstMessage()) {
    constexpr int kLongest = 280;
    std::string line = what;
    for (std::size_t begin = 0, end = 0; begin < detail.size(); begin = end + 1) {
        end = std::min(detail.find('\n', begin), detail.size());
        line += "; " + detail.substr(begin, end - begin);
    }
    (void)std::fprintf(reasons, "%.*s\n", kLongest, line.c_str());
    return status;
}

} // namespace

int main() {
    if (!prepare()) {
        return fail(kNoPicture, "cannot prepare the decoders");
    }
    try {
        const vips::VTarget output = vips::VTarget::new_to_descriptor(STDOUT_FILENO);
        const vips::VSource input = vips::VSource::new_from_descriptor(STDIN_FILENO);
        confineWorker(Liberty::threads);
        const vips::VImage picture = smallPicture(input);
        picture.jpegsave_target(output, vips::VImage::option()
                                            ->set("Q", 90)
                                            ->set("subsample_mode", VIPS_FOREIGN_SUBSAMPLE_OFF)
                                            ->set("strip", true));
        tell(Word::whole);
        return kMade;
    } catch (const vips::VError& error) {
        return fail(kNoPicture, "the picture cannot be decoded",
                    firstMessage().empty() ? error.what() : firstMessage());
    } catch (const LimitReached& limit) {
        return fail(kLimitReached, limit.what(), "");
    } catch (const std::bad_alloc&) {
        return fail(kLimitReached, "the memory limit was reached");
    } catch (const std::exception& reason) {
        return fail(kNoPicture, reason.what());
    }
}
