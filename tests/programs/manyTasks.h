#pragma once

#include "tests/host/loopbackEngine.h"
#include "tests/programs/programRun.h"

#include <atomic>
#include <functional>

/// An engine with finished torrents, those of the tasks 1 to `tasks`, each of so many photos 0.png, 1.png ... that
/// stand in the tasks' folders already. It asks for a session as a real one does.
class ManyTasks {
public:
    ManyTasks(int tasks, int photos, const std::function<void(const fs::path& photo)>& make) {
        for (int task = 1; task <= tasks; ++task) {
            const fs::path folder = fs::path("/srv/download") / std::to_string(task);
            fs::create_directories(folder);
            std::string files;
            std::string stats;
            std::int64_t whole = 0;
            for (int index = 0; index < photos; ++index) {
                const std::string name = std::to_string(index) + ".png";
                make(folder / name);
                const auto size = static_cast<std::int64_t>(fs::file_size(folder / name));
                files += (index == 0 ? "" : ",") + (R"({"name":")" + name) + R"(","length":)" + std::to_string(size) +
                         R"(,"bytesCompleted":)" + std::to_string(size) + "}";
                stats += (index == 0 ? "" : ",") + R"({"wanted":true})"s;
                whole += size;
            }
            const std::string hash = "h" + std::to_string(task);
            const std::string common = R"({"hashString":")" + hash + R"(","downloadDir":")" + folder.string() +
                                       R"(","id":)" + std::to_string(task);
            torrents_.push_back(common + R"(,"files":[)" + files + R"(],"fileStats":[)" + stats + "]}");
            all_ += (task == 1 ? "" : ",") + common + R"(,"sizeWhenDone":)" + std::to_string(whole) +
                    R"(,"haveValid":)" + std::to_string(whole) + R"(,"leftUntilDone":0,"wanted":[)" +
                    (photos == 0 ? "" : "1");
            for (int index = 1; index < photos; ++index) {
                all_ += ",1";
            }
            all_ += "]}";
        }
        setenv("VEXODL_RPC_URL", engine_.url.c_str(), 1);
    }

    std::atomic<int> requests = 0;
    std::atomic<int> plans = 0; ///< requests for one torrent alone
    std::atomic<std::size_t> bytes = 0;

private:
    std::string answer(const std::string& request) {
        ++requests;
        if (request.find("X-Transmission-Session-Id") == std::string::npos) {
            return http(409, "", "X-Transmission-Session-Id: s\r\n");
        }
        const std::size_t ids = request.find(R"("ids":["h)");
        std::string whole;
        if (ids == std::string::npos) {
            whole = success("[" + all_ + "]");
        } else {
            ++plans;
            whole = success("[" + torrents_.at(std::stoul(request.substr(ids + 9)) - 1) + "]");
        }
        bytes += whole.size();
        return whole;
    }

    std::vector<std::string> torrents_;
    std::string all_;
    LoopbackEngine engine_{[this](const std::string& request) { return answer(request); }};
};

/// The words with which a program runs so many minutes from now; its children have the true time.
inline std::vector<std::string> minutesFromNow(int minutes, const std::string& command) {
    static const std::string faketime = [] {
        shell("echo /usr/lib/*/faketime/libfaketime.so.1 >faketime");
        return words(readFile("faketime")).at(0);
    }();
    return words("env NO_FAKE_STAT=1 FAKETIME=+" + std::to_string(minutes) + "m LD_PRELOAD=" + faketime + " " +
                 command);
}
