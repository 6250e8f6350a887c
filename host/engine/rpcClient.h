#pragma once

#include <curl/curl.h>
#include <json/value.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

namespace host {

/// Bounds of one conversation with the torrent engine.
struct RpcLimits {
    std::chrono::milliseconds connect{5000};            ///< to reach the engine
    std::chrono::milliseconds total{30000};             ///< for the whole conversation
    std::size_t replyBytes = std::size_t{64} * 1048576; ///< of one reply, decompressed
};

/// One conversation with a torrent engine that speaks Transmission's RPC, over one connection and within one deadline,
/// which starts with the object.
///
/// Speaks to the address itself: no proxy, no redirection. A failure is a std::runtime_error whose text names the
/// address without its credentials. Used from one thread.
class RpcClient {
public:
    /// @param url  http or https, credentials as user:password@ in front of the host.
    explicit RpcClient(std::string url, const RpcLimits& limits = {});
    RpcClient(const RpcClient&) = delete;
    RpcClient& operator=(const RpcClient&) = delete;

    /// Calls a method of the engine and waits for the answer.
    /// @return the answer's "arguments", of any shape, of an answer that reports success.
    Json::Value call(const char* method, Json::Value arguments);

private:
    void configure();
    long post(const std::string& request);
    bool takeSessionId();
    std::string exchange(const std::string& request);
    [[noreturn]] void fail(const std::string& why) const;
    static std::size_t keepBody(char* data, std::size_t size, std::size_t count, void* client);

    std::string url_;
    RpcLimits limits_;
    std::chrono::steady_clock::time_point deadline_;
    std::unique_ptr<CURL, void (*)(CURL*)> handle_;
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> headers_;
    std::array<char, CURL_ERROR_SIZE> error_{};
    std::string body_;
    bool tooLong_ = false;
};

} // namespace host
