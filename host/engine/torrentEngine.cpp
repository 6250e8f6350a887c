#include "host/engine/torrentEngine.h"

#include "host/engine/torrentName.h"
#include "host/settings.h"
#include "host/systemLog.h"
#include "platform/torrentEngine.h"
#include "util/jsonAccess.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace host {
namespace {

using jsonAccess::member;
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
    Json::Value answer = getTorrents(engine, std::move(arguments));
    const Json::Value& torrents = std::as_const(answer)["torrents"];
    if (torrents.size() > 1 || (torrents.size() == 1 && toText(member(torrents[0], "hashString")) != hash)) {
        throw std::runtime_error("the engine answered for another torrent");
    }
    return answer;
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

} // namespace

Json::Value askForTaskTorrent(const EngineSettings& settings, int taskId, const Json::Value& fields) {
    if (!fields.isArray()) {
        throw std::invalid_argument("the fields are not a list");
    }
    const std::string taskDirectory = withoutSpareSlashes(settings.downloadRoot + '/' + std::to_string(taskId));
    RpcClient engine(settings.url, settings.limits);
    const std::string hash = findTorrent(engine, taskDirectory);
    if (hash.empty()) {
        Json::Value none(Json::objectValue);
        none["torrents"] = Json::Value(Json::arrayValue);
        return none;
    }
    Json::Value answer = getTorrent(engine, hash, fields);
    for (Json::Value& torrent : answer["torrents"]) {
        if (member(torrent, "files").isArray()) {
            correctNames(torrent["files"], taskDirectory);
        }
    }
    return answer;
}

} // namespace host

int VEXODownloadRpcTorrentGet(int taskId, const Json::Value& fields, Json::Value& reply) {
    try {
        const std::string url = host::setting("VEXODL_RPC_URL", "http://127.0.0.1:9091/transmission/rpc");
        Json::Value answer(Json::objectValue);
        answer["arguments"] = host::askForTaskTorrent({url, host::downloadRoot(), {}}, taskId, fields);
        reply.swap(answer);
        return 0;
    } catch (const std::exception& error) {
        host::logFailure("torrent engine", error.what());
        return -1;
    }
}
