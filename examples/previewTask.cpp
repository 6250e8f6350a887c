// The smallest caller: makes what a download task lacks of its thumbnails and prints those that are recorded then.

#include <thumbnail/thumbnailGenerator.h>

#include <charconv>
#include <cstdio>
#include <string_view>

int main(int argc, char** argv) {
    const std::string_view word = argc == 2 ? argv[1] : "";
    int task = 0;
    const char* const wordEnd = word.data() + word.size();
    const auto [end, error] = std::from_chars(word.data(), wordEnd, task);
    if (error != std::errc() || end != wordEnd || task < 0) {
        (void)std::fputs("usage: previewTask TASK\n", stderr);
        return 2;
    }
    ThumbnailGenerator generator(task, /* debug: failures go to the system log */ true);
    const bool complete = generator.generate() == 0;
    std::vector<Thumbnail> recorded;
    if (generator.getExistThumbnailList(recorded) < 0) {
        return 1;
    }
    for (const Thumbnail& thumbnail : recorded) {
        std::printf("%s shows second %d\n", thumbnail.thumbnail_filename.c_str(), thumbnail.thumbnail_second);
    }
    std::printf("task %d: %zu thumbnails%s\n", task, recorded.size(), complete ? "" : ", some are missing");
    return complete ? 0 : 1;
}
