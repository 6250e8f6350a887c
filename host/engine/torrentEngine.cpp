#include "host/engine/torrentEngine.h"

#include "host/caller.h"
#include "host/engine/torrentName.h"
#include "host/failure.h"
#include "host/settings.h"
#include "host/systemLog.h"
#include "platform/torrentEngine.h"
#include "util/jsonAccess.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace host {
namespace {

using jsonAccess::member;
using jsonAccess::toBool;
using jsonAccess::toInt64;
using jsonAccess::toText;

constexpr const char* kDownloadLink = "/var/services/download";

std::string downloadRoot() {
    const std::filesystem::path link(kDownloadLink);
    return link.parent_path() / std::filesystem::read_symlink(link); // an absolute target stands for itself
}

std::string withoutSpareSlashes(std::string_view path) {
    std::string plain(path);
    plain.erase(std::unique(plain.begin(), plain.end(), [](char a, char b) { return a == '/' && b == '/'; }),
                plain.end());
    if (plain.size() > 1 && plain.back() == '/') {
        plain.pop_back();
    }
    return plain;
}

bool isSameDirectory(const std::string& taskDirectory, std::string_view other) {
    std::error_code ignored;
    return withoutSpareSlashes(other) == taskDirectory ||
           (!other.empty() && std::filesystem::equivalent(taskDirectory, other, ignored));
}

/// Calls torrent-get and checks that a list of torrents came back.
Json::Value getTorrents(RpcClient& engine, Json::Value arguments) {
    Json::Value answer = engine.call("torrent-get", std::move(arguments));
    if (!member(answer, "torrents").isArray()) {
        throw std::runtime_error("the engine's answer holds no list of torrents");
    }
    return answer;
}

/// @return the info hash of the torrent that downloads into the directory, empty when there is none.
std::string findTorrent(RpcClient& engine, const std::string& taskDirectory) {
    Json::Value arguments(Json::objectValue);
    for (const char* field : {"id", "hashString", "downloadDir"}) {
        arguments["fields"].append(field);
    }
    const Json::Value answer = getTorrents(engine, std::move(arguments));
    std::string hash;
    for (const Json::Value& torrent : answer["torrents"]) {
        if (!isSameDirectory(taskDirectory, toText(member(torrent, "downloadDir")))) {
            continue;
        }
        // With two torrents in the directory nothing tells which one the task is; the pictures of one must not be
        // recorded for files of the other.
        if (!hash.empty()) {
            throw std::runtime_error("two torrents download into " + taskDirectory);
        }
        hash = toText(member(torrent, "hashString"));
        if (hash.empty()) {
            throw std::runtime_error("the engine's torrent has no hash");
        }
    }
    return hash;
}

/// @return {"torrents": [...]} with the torrent of that hash alone. The hash names it because the engine's own number
/// changes when the engine restarts.
Json::Value getTorrent(RpcClient& engine, const std::string& hash, const Json::Value& fields) {
    Json::Value arguments(Json::objectValue);
    arguments["ids"].append(hash);
    arguments["fields"] = fields;
    arguments["fields"].append("hashString");
    arguments["fields"].append("downloadDir");
    Json::Value answer = getTorrents(engine, std::move(arguments));
    const Json::Value& torrents = std::as_const(answer)["torrents"];
    if (torrents.size() > 1 || (torrents.size() == 1 && toText(member(torrents[0], "hashString")) != hash)) {
        throw std::runtime_error("the engine answered for another torrent");
    }
    return answer;
}

/// What allTasks() has found last: a caller that looks after all tasks asks for one after the other.
class FoundTorrents {
public:
    void keep(const EngineTasks& all) {
        const std::lock_guard guard(mutex_);
        hashes_.clear();
        for (const auto& [task, torrent] : all.tasks) {
            if (torrent.torrents == 1) {
                hashes_[task] = torrent.hash;
            }
        }
    }

    /// @return the info hash; empty when none was found.
    std::string hashOf(int task) {
        const std::lock_guard guard(mutex_);
        const auto found = hashes_.find(task);
        return found == hashes_.end() ? "" : found->second;
    }

private:
    std::mutex mutex_;
    std::map<int, std::string> hashes_;
};

FoundTorrents& foundTorrents() {
    static FoundTorrents found;
    return found;
}

/// The torrent that was found for the task, when it is the task's still; else the one that is.
Json::Value getTaskTorrent(RpcClient& engine, int taskId, const std::string& taskDirectory, const Json::Value& fields) {
    if (const std::string found = foundTorrents().hashOf(taskId); !found.empty()) {
        Json::Value answer = getTorrent(engine, found, fields);
        const Json::Value& torrent = jsonAccess::element(std::as_const(answer)["torrents"], 0);
        if (isSameDirectory(taskDirectory, toText(member(torrent, "downloadDir")))) {
            return answer;
        }
    }
    const std::string hash = findTorrent(engine, taskDirectory);
    if (hash.empty()) {
        Json::Value none(Json::objectValue);
        none["torrents"] = Json::Value(Json::arrayValue);
        return none;
    }
    return getTorrent(engine, hash, fields);
}

void correctNames(Json::Value& files, const std::string& taskDirectory) {
    for (Json::Value& file : files) {
        if (!member(file, "name").isString()) {
            continue;
        }
        Json::Value& name = file["name"];
        if (!staysBelow(toText(name)) || isOfPreviews(toText(name))) {
            name = Json::Value(); // nobody can take it for a path, and the file's index still holds
        } else if (const auto other = otherNameOnDisk(taskDirectory, toText(name))) {
            name = *other;
        }
    }
}

std::string rpcUrl() {
    return setting("VEXODL_RPC_URL", "http://127.0.0.1:9091/transmission/rpc");
}

/// @return the task whose directory this is.
std::optional<int> taskOf(const std::string& root, std::string_view downloadDir) {
    const std::filesystem::path directory(withoutSpareSlashes(downloadDir));
    const std::string name = directory.filename();
    int task = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), task);
    const bool isTask = error == std::errc() && task >= 0 && std::to_string(task) == name &&
                        isSameDirectory(root, directory.parent_path().native());
    return isTask ? std::optional(task) : std::nullopt;
}

std::string directoryOf(int task) {
    return withoutSpareSlashes(downloadRoot() + '/' + std::to_string(task));
}

std::string base64(std::string_view bytes) {
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr int kBits = 6;
    std::string text;
    unsigned int pending = 0;
    int bits = 0;
    for (const char byte : bytes) {
        pending = pending << 8U | static_cast<unsigned char>(byte);
        for (bits += 8; bits >= kBits; bits -= kBits) {
            text += kDigits[pending >> static_cast<unsigned int>(bits - kBits) & 63U];
        }
    }
    if (bits > 0) {
        text += kDigits[pending << static_cast<unsigned int>(kBits - bits) & 63U];
    }
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

TaskTorrent stateOf(const Json::Value& torrent) {
    TaskTorrent state;
    state.hash = toText(member(torrent, "hashString"));
    state.name = toText(member(torrent, "name"));
    state.addedDate = toInt64(member(torrent, "addedDate"));
    state.sizeWhenDone = toInt64(member(torrent, "sizeWhenDone"));
    state.haveValid = toInt64(member(torrent, "haveValid"));
    state.leftUntilDone = toInt64(member(torrent, "leftUntilDone"));
    for (const Json::Value& wanted : member(torrent, "wanted")) {
        state.wantedFiles += toBool(wanted) ? 1 : 0;
    }
    return state;
}

} // namespace

Json::Value askForTaskTorrent(const EngineSettings& settings, int taskId, const Json::Value& fields) {
    if (!fields.isArray()) {
        throw std::invalid_argument("the fields are not a list");
    }
    const std::string taskDirectory = withoutSpareSlashes(settings.downloadRoot + '/' + std::to_string(taskId));
    RpcClient engine(settings.url, settings.limits);
    Json::Value answer = getTaskTorrent(engine, taskId, taskDirectory, fields);
    for (Json::Value& torrent : answer["torrents"]) {
        if (member(torrent, "files").isArray()) {
            correctNames(torrent["files"], taskDirectory);
        }
    }
    return answer;
}

EngineTasks allTasks() {
    const std::string root = withoutSpareSlashes(downloadRoot());
    RpcClient engine(rpcUrl());
    Json::Value arguments(Json::objectValue);
    for (const char* field :
         {"hashString", "name", "downloadDir", "addedDate", "sizeWhenDone", "haveValid", "leftUntilDone", "wanted"}) {
        arguments["fields"].append(field);
    }
    const Json::Value answer = getTorrents(engine, std::move(arguments));
    EngineTasks all;
    for (const Json::Value& torrent : answer["torrents"]) {
        all.torrents.emplace(toText(member(torrent, "hashString")));
        if (const std::optional<int> task = taskOf(root, toText(member(torrent, "downloadDir")))) {
            const auto [place, isFirst] = all.tasks.try_emplace(*task, stateOf(torrent));
            place->second.torrents += isFirst ? 0 : 1;
        }
    }
    foundTorrents().keep(all);
    return all;
}

AddedTorrent addTorrent(const std::string& torrent, int task) {
    constexpr std::string_view kMagnet = "magnet:";
    Json::Value arguments(Json::objectValue);
    arguments["download-dir"] = directoryOf(task);
    if (torrent.compare(0, kMagnet.size(), kMagnet) == 0) {
        arguments["filename"] = torrent;
    } else {
        arguments["metainfo"] = base64(torrent);
    }
    const Json::Value answer = RpcClient(rpcUrl()).call("torrent-add", std::move(arguments));
    AddedTorrent added;
    added.isNew = member(answer, "torrent-added").isObject();
    added.hash = toText(member(member(answer, added.isNew ? "torrent-added" : "torrent-duplicate"), "hashString"));
    if (added.hash.empty()) {
        throw std::runtime_error("the engine's answer tells no torrent");
    }
    return added;
}

void moveTorrent(const std::string& hash, int task) {
    Json::Value arguments(Json::objectValue);
    arguments["ids"].append(hash);
    arguments["location"] = directoryOf(task);
    arguments["move"] = true;
    (void)RpcClient(rpcUrl()).call("torrent-set-location", std::move(arguments));
}

} // namespace host

int VEXODownloadRpcTorrentGet(int taskId, const Json::Value& fields, Json::Value& reply) {
    try {
        Json::Value answer(Json::objectValue);
        answer["arguments"] = host::askForTaskTorrent({host::rpcUrl(), host::downloadRoot(), {}}, taskId, fields);
        reply.swap(answer);
        return 0;
    } catch (const std::exception& error) {
        host::logFailure("torrent engine", error.what());
        host::keepFailure(host::Failure::Kind::engine, 0, error.what());
        return -1;
    }
}
