// Everything that the library reads from others, in any shape: the engine's reply, the database's rows and the duration
// helper's output, in this order and separated by lines of "%%"; then the number of a platform call that fails, if any.
//
// Neither may throw, change the cached item by reading it, or make a result depend on the debug flag.

#include "fakePlatform.h"
#include "tests/host/sandbox.h"
#include "thumbnail/jsonAccess.h"
#include "thumbnail/thumbnailGenerator.h"

#include <cstdint>
#include <cstdlib>

namespace {

struct Input {
    Json::Value reply;
    Json::Value rows;
    std::string helperOutput;
    int failingCall = -1;
};

std::string takeText(std::string& rest) {
    const std::string separator = "\n%%\n";
    const std::size_t end = rest.find(separator);
    const std::string text = rest.substr(0, end);
    rest.erase(0, end == std::string::npos ? end : end + separator.size());
    return text;
}

Input split(std::string text) {
    Input input;
    jsonAccess::parse(takeText(text), input.reply);
    jsonAccess::parse(takeText(text), input.rows);
    input.helperOutput = takeText(text);
    input.failingCall = text.empty() ? -1 : std::atoi(takeText(text).c_str());
    return input;
}

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

struct Results {
    int count;
    int made;
    std::size_t rows;
};

Results run(const Input& input, const std::string& downloadLink, bool debug) {
    fake = FakePlatform();
    fake.downloadLink = downloadLink;
    fake.reply = input.reply;
    fake.stored["data"] = input.rows;
    fake.helperOutput = input.helperOutput;
    fake.failingCall = input.failingCall;
    ThumbnailGenerator generator(12, debug);
    Results results = {};
    results.count = generator.getTotalThumbnailNumber();
    require(results.count >= -1 && results.count <= 30);
    require(debug || fake.messages.empty());
    const Json::Value fetched = generator.taskFiles;
    const Json::Value& torrents = jsonAccess::member(jsonAccess::member(input.reply, "arguments"), "torrents");
    require(results.count < 0 || fetched == jsonAccess::element(torrents, 0));
    if (!fake.stored["data"].isArray()) {
        fake.stored["data"] = Json::Value(); // the fake could not append to it
    }
    const std::size_t before = fake.stored["data"].size();
    results.made = generator.generate();
    require(results.made == -1 || results.made == 0);
    require(generator.taskFiles == fetched || fetched.isNull());
    results.rows = fake.stored["data"].size() - before;
    require(results.rows <= 30);
    return results;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Sandbox sandbox;
    const Input input = split(std::string(reinterpret_cast<const char*>(data), size));
    const Results loud = run(input, sandbox.root, true);
    const Results quiet = run(input, sandbox.root, false);
    require(loud.count == quiet.count && loud.made == quiet.made && loud.rows == quiet.rows);
    return 0;
}
