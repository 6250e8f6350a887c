#include "benchmarks/torrentItem.h"

#include <json/reader.h>

#include <array>
#include <cstdlib>
#include <memory>

std::string fileText(const std::string& name, long long length) {
    const std::string bytes = std::to_string(length);
    return R"({"bytesCompleted":)" + bytes + R"(,"length":)" + bytes + R"(,"name":")" + name + R"("},)";
}

std::string fileStatsText(long long length) {
    return R"({"bytesCompleted":)" + std::to_string(length) + R"(,"priority":0,"wanted":true},)";
}

std::string answerText(int task, std::string files, std::string fileStats) {
    files.pop_back();
    fileStats.pop_back();
    std::string answer = R"({"arguments":{"torrents":[{"fileStats":[)";
    answer.reserve(files.size() + fileStats.size() + 256);
    answer += fileStats;
    answer += R"(],"files":[)";
    answer += files;
    answer += R"(],"hashString":")" + std::to_string(task) + R"(","id":1,"name":"Task"}]},"result":"success"})";
    return answer;
}

std::string answerOfFiles(int task, int files) {
    constexpr std::array<const char*, 5> kEndings = {".mkv", ".jpg", ".mp4", ".JPG", ".txt"};
    std::string list;
    std::string stats;
    for (int file = 0; file < files; ++file) {
        const long long length = 60'000'000LL + file * 7919LL % 1'000'003;
        const std::string number = std::to_string(file);
        list += fileText("Task/Part " + std::to_string(file / 100) + "/A recording of some length, number " + number +
                             kEndings.at(static_cast<std::size_t>(file) % kEndings.size()),
                         length);
        stats += fileStatsText(length);
    }
    return answerText(task, std::move(list), std::move(stats));
}

Json::Value parsed(const std::string& answer) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    if (!reader->parse(answer.data(), answer.data() + answer.size(), &value, nullptr)) {
        std::abort();
    }
    return value;
}
