#include "server/previewPage.h"

#include "platform/mediaIndex.h"
#include "server/downloadArea.h"
#include "server/page/previewFiles.h"
#include "server/shownText.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string_view>
#include <tuple>
#include <utility>

namespace server {
namespace {

using host::RecordedPicture;
using host::TaskTorrent;

/// A task, its pictures being neighbours in the list of all.
struct Task {
    int number = 0;
    TaskTorrent torrent; ///< none without torrents
    std::vector<const RecordedPicture*> pictures;
};

std::string escaped(std::string_view foreign) {
    std::string text;
    for (const char character : shown(foreign)) {
        switch (character) {
        case '&':
            text += "&amp;";
            break;
        case '<':
            text += "&lt;";
            break;
        case '>':
            text += "&gt;";
            break;
        case '"':
            text += "&quot;";
            break;
        case '\'':
            text += "&#39;";
            break;
        default:
            text += character;
        }
    }
    return text;
}

/// What leads from the page to a picture, also when its name has characters that mean something in an address.
std::string addressOf(const RecordedPicture& picture) {
    constexpr std::string_view kPlain = "-._~";
    std::string address = pictureFolder(std::to_string(picture.task)) + '/';
    for (const char character : picture.name) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80 && (std::isalnum(byte) != 0 || kPlain.find(character) != std::string_view::npos)) {
            address += character;
        } else {
            std::array<char, 4> number{};
            (void)std::snprintf(number.data(), number.size(), "%%%02X", byte);
            address += number.data();
        }
    }
    return address;
}

std::string timeOf(int second) {
    constexpr int kMinute = 60;
    constexpr int kHour = 3600;
    std::array<char, 32> text{};
    if (second >= kHour) {
        (void)std::snprintf(text.data(), text.size(), "%d:%02d:%02d", second / kHour, second % kHour / kMinute,
                            second % kMinute);
    } else {
        (void)std::snprintf(text.data(), text.size(), "%d:%02d", second / kMinute, second % kMinute);
    }
    return text.data();
}

std::string sizeOf(std::int64_t bytes) {
    constexpr double kStep = 1000;
    constexpr std::array kUnits = {"B", "kB", "MB", "GB", "TB"};
    auto number = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; number >= kStep && unit + 1 < kUnits.size(); ++unit) {
        number /= kStep;
    }
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), unit == 0 || number >= 10 ? "%.0f %s" : "%.1f %s", number,
                        kUnits.at(unit));
    return text.data();
}

std::string stateOf(const Task& task) {
    constexpr int kPercent = 100;
    const TaskTorrent& torrent = task.torrent;
    if (torrent.torrents == 0) {
        return "the torrent is gone";
    }
    if (torrent.torrents > 1) {
        return "two torrents in one folder";
    }
    if (torrent.sizeWhenDone <= 0) {
        return "no list of files yet";
    }
    const std::string size = sizeOf(torrent.sizeWhenDone);
    if (torrent.leftUntilDone == 0) {
        return "complete, " + size;
    }
    // Not rounded up: 100 % is complete.
    const auto share =
        static_cast<int>(static_cast<double>(torrent.haveValid) * kPercent / static_cast<double>(torrent.sizeWhenDone));
    return std::to_string(std::clamp(share, 0, kPercent - 1)) + " % of " + size;
}

bool isFilm(const std::string& path) {
    const std::size_t dot = path.rfind('.');
    return dot != std::string::npos && BlVEXOIndexIsVideo(path.c_str() + dot + 1) != 0;
}

void addPicture(std::string& page, const RecordedPicture& picture, const std::string& caption) {
    const std::string address = addressOf(picture);
    page += R"(<a href=")" + address + R"("><img loading="lazy" alt="" src=")" + address + R"("><span dir="auto">)" +
            caption + "</span></a>\n";
}

/// A file's path below the torrent's own folder.
std::string_view pathIn(const TaskTorrent& torrent, const RecordedPicture& picture) {
    const std::string_view path = withoutPart(picture.source);
    const std::string folder = torrent.name + '/';
    return path.substr(0, folder.size()) == folder ? path.substr(folder.size()) : path;
}

void addPictures(std::string& page, const Task& task) {
    std::string photos;
    int film = -1;
    for (const RecordedPicture* picture : task.pictures) {
        const std::string path(pathIn(task.torrent, *picture));
        if (!isFilm(path)) {
            addPicture(photos, *picture, escaped(path));
            continue;
        }
        if (picture->fileIndex != film) {
            page += film < 0 ? "" : "</div>\n";
            page += "<h3 dir=\"auto\">" + escaped(path) + "</h3>\n<div class=\"film\">\n";
            film = picture->fileIndex;
        }
        addPicture(page, *picture, timeOf(picture->second));
    }
    page += film < 0 ? "" : "</div>\n";
    page += photos.empty() ? "" : "<div class=\"photos\">\n" + photos + "</div>\n";
    page += task.pictures.empty() ? "<p class=\"quiet\">No pictures.</p>\n" : "";
}

std::vector<Task> tasksOf(const host::EngineTasks& engine, const std::vector<RecordedPicture>& pictures) {
    std::map<int, Task> byNumber;
    for (const auto& [number, torrent] : engine.tasks) {
        byNumber[number].torrent = torrent;
    }
    for (const RecordedPicture& picture : pictures) {
        const auto [task, isNew] = byNumber.try_emplace(picture.task);
        if (isNew) {
            task->second.torrent.torrents = 0;
        }
        if (isPlainName(picture.name)) {
            task->second.pictures.push_back(&picture);
        }
    }
    std::vector<Task> tasks;
    for (auto& [number, task] : byNumber) {
        task.number = number;
        tasks.push_back(std::move(task));
    }
    std::sort(tasks.begin(), tasks.end(), [](const Task& a, const Task& b) {
        return std::tie(a.torrent.addedDate, a.number) > std::tie(b.torrent.addedDate, b.number);
    });
    return tasks;
}

void addTask(std::string& page, const Task& task) {
    const std::string number = "Task " + std::to_string(task.number);
    const bool hasName = !task.torrent.name.empty();
    page += "<section>\n<h2 dir=\"auto\">" + (hasName ? escaped(task.torrent.name) : number) +
            "</h2>\n<p class=\"quiet\">" + (hasName ? number + ": " : "") + stateOf(task) + "</p>\n";
    addPictures(page, task);
    page += "</section>\n";
}

} // namespace

std::string previewPage(const host::EngineTasks& engine, const std::vector<RecordedPicture>& pictures) {
    const std::vector<Task> tasks = tasksOf(engine, pictures);
    std::string page = kPageBegin;
    page += "<header>\n<h1>Previews</h1>\n"
            "<input type=\"search\" placeholder=\"Search\" aria-label=\"Search tasks and files\" hidden>\n"
            "<p class=\"quiet\" role=\"status\">" +
            std::to_string(tasks.size()) + (tasks.size() == 1 ? " task" : " tasks") + "</p>\n</header>\n<main>\n";
    for (const Task& task : tasks) {
        addTask(page, task);
    }
    page += kPageEnd;
    return page;
}

} // namespace server
