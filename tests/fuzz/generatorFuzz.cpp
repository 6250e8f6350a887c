// Everything that the library reads from others, in any shape: the engine's reply, the database's rows and the duration
// helper's output, in this order and separated by lines of "%%"; then the number of a platform call that fails, if any.
//
// Neither may throw, change the cached item by reading it, or make a result depend on the debug flag.

#include "fakePlatform.h"
#include "tests/host/sandbox.h"
#include "thumbnail/thumbnailGenerator.h"
#include "util/jsonAccess.h"

#include <cstdint>
#include <cstdlib>
#include <tuple>

namespace {

std::string takeText(std::string& rest) {
    const std::string separator = "\n%%\n";
    const std::size_t end = rest.find(separator);
    const std::string text = rest.substr(0, end);
    rest.erase(0, end == std::string::npos ? end : end + separator.size());
    return text;
}

/// The neighbours that answer so.
FakePlatform split(std::string text) {
    static const Sandbox sandbox;
    FakePlatform platform = {sandbox.root};
    jsonAccess::parse(takeText(text), platform.reply);
    jsonAccess::parse(takeText(text), platform.stored["data"]);
    platform.helperOutput = takeText(text);
    platform.failingCall = text.empty() ? -1 : std::atoi(text.c_str());
    return platform;
}

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/// @return the count, the result of the run, and how many rows there are after it.
std::tuple<int, int, Json::ArrayIndex> run(const FakePlatform& platform, bool debug) {
    fake = platform;
    ThumbnailGenerator generator(12, debug);
    const int count = generator.getTotalThumbnailNumber();
    require(count >= -1 && count <= 30);
    const Json::Value fetched = generator.taskFiles;
    const Json::Value& torrents = jsonAccess::member(jsonAccess::member(platform.reply, "arguments"), "torrents");
    require(count < 0 || fetched == jsonAccess::element(torrents, 0));
    const int made = generator.generate();
    require(made == -1 || made == 0);
    require(generator.taskFiles == fetched || fetched.isNull());
    require(debug || fake.messages.empty());
    return {count, made, fake.stored["data"].size()};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FakePlatform platform = split(std::string(reinterpret_cast<const char*>(data), size));
    require(run(platform, true) == run(platform, false));
    return 0;
}
