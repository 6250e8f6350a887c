#include "host/engine/rpcClient.h"

#include "util/jsonAccess.h"

#include <json/writer.h>

#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace host {
namespace {

constexpr long kStatusOk = 200;
constexpr long kStatusConflict = 409;
constexpr const char* kSessionIdHeader = "X-Transmission-Session-Id";
constexpr const char* kTooLong = "the answer is too long";

CURL* newHandle() {
    // The process may not have initialised libcurl yet, and two threads may come here first.
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    return initialised == CURLE_OK ? curl_easy_init() : nullptr;
}

template <typename Value>
void setOption(CURL* handle, CURLoption option, Value value) {
    if (const CURLcode code = curl_easy_setopt(handle, option, value); code != CURLE_OK) {
        throw std::runtime_error(curl_easy_strerror(code));
    }
}

// Other threads of the process may start programs at any moment, which shall not inherit the connection.
curl_socket_t openSocket(void* /*unused*/, curlsocktype /*purpose*/, curl_sockaddr* address) {
    return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

std::string withoutCredentials(const std::string& url) {
    const std::unique_ptr<CURLU, void (*)(CURLU*)> parts(curl_url(), curl_url_cleanup);
    char* text = nullptr;
    if (curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
        curl_url_set(parts.get(), CURLUPART_USER, nullptr, 0) != CURLUE_OK ||
        curl_url_set(parts.get(), CURLUPART_PASSWORD, nullptr, 0) != CURLUE_OK ||
        curl_url_get(parts.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) {
        return "malformed address";
    }
    const std::unique_ptr<char, void (*)(void*)> owned(text, curl_free);
    return owned.get();
}

/// Would a part of the password be taken for the host or the path? Where an @ stands behind the first one, or behind
/// the slash, a character of the name or password was not written by its number.
bool isCutInPassword(const std::string& url) {
    const std::size_t scheme = url.find("://");
    const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
    const std::size_t end = url.find_first_of("/?#", begin);
    const std::size_t at = url.find('@', begin);
    return at != std::string::npos && (end < at || url.find('@', at + 1) != std::string::npos);
}

std::string asText(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

} // namespace

RpcClient::RpcClient(std::string url, const RpcLimits& limits)
    : url_(std::move(url)), limits_(limits), deadline_(std::chrono::steady_clock::now() + limits.total),
      handle_(newHandle(), curl_easy_cleanup), headers_(nullptr, curl_slist_free_all) {
    if (isCutInPassword(url_)) {
        throw std::runtime_error("malformed address: a character of its name or password has to be percent-encoded");
    }
    if (handle_ == nullptr) {
        fail("cannot start libcurl");
    }
    configure();
}

void RpcClient::configure() {
    CURL* handle = handle_.get();
    setOption(handle, CURLOPT_ERRORBUFFER, error_.data());
    setOption(handle, CURLOPT_URL, url_.c_str());
    setOption(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    setOption(handle, CURLOPT_PROXY, "");
    setOption(handle, CURLOPT_FOLLOWLOCATION, 0L);
    setOption(handle, CURLOPT_NOSIGNAL, 1L); // signal actions belong to the process, not to us
    // The engine is near, and packing would cost both sides more than the bytes do; a packed answer is understood.
    setOption(handle, CURLOPT_ACCEPT_ENCODING, "identity");
    setOption(handle, CURLOPT_OPENSOCKETFUNCTION, openSocket);
    setOption(handle, CURLOPT_WRITEFUNCTION, keepBody);
    setOption(handle, CURLOPT_WRITEDATA, static_cast<void*>(this));
}

Json::Value RpcClient::call(const char* method, Json::Value arguments) {
    Json::Value request(Json::objectValue);
    request["method"] = method;
    request["arguments"] = std::move(arguments);

    const std::string text = exchange(asText(request));
    Json::Value answer;
    if (!jsonAccess::parse(text, answer) || !answer.isObject()) {
        fail(jsonAccess::hasTooManyValues(text) ? kTooLong : "the answer is not a JSON object");
    }
    // A refused call, too, is answered with the HTTP status 200.
    const std::string_view result = jsonAccess::toText(jsonAccess::member(answer, "result"));
    if (result != "success") {
        fail("refused: " + std::string(result.empty() ? "no result" : result));
    }
    return std::move(answer["arguments"]);
}

/// Posts a request and keeps the answer's body. The engine refuses a request without its current session id and tells
/// the id with the refusal; one repetition is enough, and an engine that refuses again would do so for ever.
std::string RpcClient::exchange(const std::string& request) {
    long status = post(request);
    if (status == kStatusConflict && takeSessionId()) {
        status = post(request);
    }
    if (status != kStatusOk) {
        fail("HTTP status " + std::to_string(status));
    }
    return std::move(body_);
}

long RpcClient::post(const std::string& request) {
    using std::chrono::milliseconds;
    const auto left = std::chrono::duration_cast<milliseconds>(deadline_ - std::chrono::steady_clock::now());
    const auto timeout = std::max(left, milliseconds(1)); // 0 would mean no limit
    CURL* handle = handle_.get();
    setOption(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(timeout.count()));
    setOption(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::min(timeout, limits_.connect).count()));
    setOption(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.size()));
    setOption(handle, CURLOPT_POSTFIELDS, request.c_str());
    setOption(handle, CURLOPT_HTTPHEADER, headers_.get());

    body_.clear();
    error_.front() = '\0';
    const CURLcode code = curl_easy_perform(handle);
    if (code != CURLE_OK) {
        fail(tooLong_ ? kTooLong : error_.front() != '\0' ? error_.data() : curl_easy_strerror(code));
    }
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    return status;
}

bool RpcClient::takeSessionId() {
    curl_header* header = nullptr;
    if (curl_easy_header(handle_.get(), kSessionIdHeader, 0, CURLH_HEADER, -1, &header) != CURLHE_OK) {
        return false;
    }
    const std::string line = std::string(kSessionIdHeader) + ": " + header->value;
    headers_.reset(curl_slist_append(nullptr, line.c_str()));
    return headers_ != nullptr;
}

void RpcClient::fail(const std::string& why) const {
    throw std::runtime_error(why + " (" + withoutCredentials(url_) + ")");
}

std::size_t RpcClient::keepBody(char* data, std::size_t size, std::size_t count, void* client) {
    auto& self = *static_cast<RpcClient*>(client);
    const std::size_t bytes = size * count;
    self.tooLong_ = bytes > self.limits_.replyBytes - self.body_.size();
    if (self.tooLong_) {
        return 0;
    }
    curl_off_t announced = -1; // -1 where the engine does not say
    if (self.body_.empty()) {
        curl_easy_getinfo(self.handle_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    }
    try {
        self.body_.reserve(
            std::min(self.limits_.replyBytes, static_cast<std::size_t>(std::max<curl_off_t>(announced, 0))));
        self.body_.append(data, bytes);
    } catch (const std::exception&) { // no memory; an exception must not cross libcurl
        return 0;
    }
    return bytes;
}

} // namespace host
