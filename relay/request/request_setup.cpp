// SPDX-License-Identifier: Apache-2.0
#include <relay/request/request.h>

#include <unistd.h>

#include <array>
#include <cstring>
#include <new>

#include <ardv/user_agent.h>

#include <relay/daemon/log.h>
#include <relay/request/curl_option.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("request.cpp");

namespace ARDV::Relay {

namespace {

constexpr std::size_t kUserAgentSize = 1024;
constexpr std::string_view kHttps = "https://";

constexpr Curl::NumberOption kTransferOptions[] = {
    {CURLOPT_CONNECTTIMEOUT, "CURLOPT_CONNECTTIMEOUT", 20},
    {CURLOPT_TIMEOUT, "CURLOPT_TIMEOUT", 60},
    {CURLOPT_FORBID_REUSE, "CURLOPT_FORBID_REUSE", 1},
};

constexpr Curl::NumberOption kTlsOptions[] = {
    {CURLOPT_SSL_VERIFYPEER, "CURLOPT_SSL_VERIFYPEER", 1},
    {CURLOPT_SSL_VERIFYHOST, "CURLOPT_SSL_VERIFYHOST", 2},
};

// An exception must not travel through libcurl's C frames: what cannot be kept is refused, which ends the transfer.
std::size_t Receive(char* bytes, std::size_t size, std::size_t count, void* target) noexcept {
    auto& body = *static_cast<std::string*>(target);
    if (size != 0 && count > Request::kMaxResponseSize / size) {
        return 0;
    }
    const std::size_t length = size * count;
    if (length > Request::kMaxResponseSize - body.size()) {
        return 0;
    }
    try {
        body.append(bytes, length);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return length;
}

const char* DefaultBundle() {
    const auto* version = curl_version_info(CURLVERSION_NOW);
    return version && version->age >= CURLVERSION_SEVENTH ? version->cainfo : nullptr;
}

bool HasReadableBundle() {
    static const char* const bundle = DefaultBundle();  // part of the libcurl that is loaded
    return bundle && access(bundle, R_OK) == 0;
}

bool SetUserAgent(CURL* handle) {
    std::array<char, kUserAgentSize> userAgent = {};
    ALIBHsinfoUserAgentGet("Tethra", userAgent.data(), userAgent.size(), 0);
    return Curl::SetOption(handle, CURLOPT_USERAGENT, "CURLOPT_USERAGENT", userAgent.data());
}

bool SetTlsOptions(CURL* handle, const std::string& url) {
    if (url.compare(0, kHttps.size(), kHttps) != 0) {
        return true;
    }
    if (!Curl::SetOptions(handle, kTlsOptions)) {
        return false;
    }
    if (HasReadableBundle()) {
        // libcurl keeps the parsed bundle from one connection to the next only while no CA directory is set beside it.
        // A refusal costs time and no safety.
        curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);
    }
    return true;
}

// libcurl gets a copy of its own, so that no handle and no duplicate of one ever points into a text that is gone. The
// size must be set first: a duplicate of a handle with a copied body of unknown size fails.
bool SetBody(CURL* handle, const std::string& data) {
    const auto size = static_cast<long>(std::strlen(data.c_str()));
    return Curl::SetOption(handle, CURLOPT_POSTFIELDSIZE, "CURLOPT_POSTFIELDS", size) &&
           Curl::SetOption(handle, CURLOPT_COPYPOSTFIELDS, "CURLOPT_POSTFIELDS", data.c_str());
}

}  // namespace

void Curl::LogRefused(const char* name, int line) {
    RELAY_LOG_AT(line, LOG_ERR, "set %sto curl handle failed", name);
}

bool Request::Set(const std::string& url, const std::string& data, bool post) {
    if (url.empty()) {
        handle_.reset();
        return false;
    }
    url_ = url;
    if (handle_) {
        curl_easy_setopt(handle_.get(), CURLOPT_COOKIEFILE, nullptr);  // its list would leak in the reset
        curl_easy_reset(handle_.get());
    } else {
        handle_.reset(curl_easy_init());
    }
    if (!handle_ || !SetUp(data, post)) {
        handle_.reset();
        return false;
    }
    return true;
}

bool Request::Set(const std::string& url, const Json::Value& data, bool post) {
    return Set(url, JsonText::Compact(data), post);
}

bool Request::SetUp(const std::string& data, bool post) {
    CURL* const handle = handle_.get();
    CURLSH* const share = GetCurlShare(false);
    if (!share || !Curl::SetOption(handle, CURLOPT_SHARE, "CURLOPT_SHARE", share) ||
        !Curl::SetOption(handle, CURLOPT_COOKIEFILE, "CURLOPT_COOKIEFILE", "")) {
        return false;
    }
    if (!InitSend()) {
        RELAY_LOG(LOG_ERR, "init send failed");
        return false;
    }
    if (!Curl::SetOption(handle, CURLOPT_URL, "CURLOPT_URL", url_.c_str())) {
        return false;
    }
    SetData(data, post);
    std::memset(errorBuffer_, 0, sizeof errorBuffer_);
    return SetUserAgent(handle) && Curl::SetOptions(handle, kTransferOptions) &&
           Curl::SetOption(handle, CURLOPT_WRITEFUNCTION, "CURLOPT_WRITEFUNCTION", &Receive) &&
           Curl::SetOption(handle, CURLOPT_ERRORBUFFER, "CURLOPT_ERRORBUFFER", &errorBuffer_[0]) &&
           SetTlsOptions(handle, url_) &&
           (_strCookie.empty() || Curl::SetOption(handle, CURLOPT_COOKIE, "CURLOPT_COOKIE", _strCookie.c_str()));
}

bool Request::SetData(const std::string& data, bool post) {
    if (!IsValid()) {
        return false;
    }
    data_ = data;
    if (post && !data_.empty()) {
        return Curl::SetOption(handle_.get(), CURLOPT_URL, "CURLOPT_URL", url_.c_str()) &&
               SetBody(handle_.get(), data_);
    }
    // Takes away the body of an earlier POST, and with it the method.
    curl_easy_setopt(handle_.get(), CURLOPT_POSTFIELDS, nullptr);
    curl_easy_setopt(handle_.get(), CURLOPT_HTTPGET, 1L);
    const std::string target = post ? url_ : url_ + "?" + data_;
    return Curl::SetOption(handle_.get(), CURLOPT_URL, "CURLOPT_URL", target.c_str());
}

bool Request::SetData(const Json::Value& data, bool post) {
    return SetData(JsonText::Compact(data), post);
}

bool Request::SetResolveIPv6() {
    return Curl::SetOption(handle_.get(), CURLOPT_IPRESOLVE, "CURLOPT_IPRESOLVE", long{CURL_IPRESOLVE_V6});
}

bool Request::SetTcpKeepAlive(int seconds) {
    const Curl::NumberOption options[] = {
        {CURLOPT_TCP_KEEPALIVE, "CURLOPT_TCP_KEEPALIVE", 1},
        {CURLOPT_TCP_KEEPIDLE, "CURLOPT_TCP_KEEPIDLE", seconds},
        {CURLOPT_TCP_KEEPINTVL, "CURLOPT_TCP_KEEPINTVL", seconds},
        {CURLOPT_TIMEOUT, "CURLOPT_TIMEOUT", 0},
    };
    Curl::SetOptions(handle_.get(), options);
    return true;
}

bool Request::SetConnectionTimeout(long seconds) {
    return Curl::SetOption(handle_.get(), CURLOPT_CONNECTTIMEOUT, "CURLOPT_CONNECTTIMEOUT", seconds);
}

}  // namespace ARDV::Relay
