// SPDX-License-Identifier: Apache-2.0
#include <relay/request/request.h>

#include <relay/daemon/log.h>
#include <relay/request/curl_option.h>
#include <relay/request/form.h>
#include <relay/request/transfer_error.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("request.cpp");

namespace ARDV::Relay {

namespace {

constexpr auto kTransferFailed = static_cast<RELAYD_RET>(2);

constinit Curl::FailureRun gFailures;

struct StatusClass {
    int first;
    int last;
    RELAYD_RET ret;
};

// A client error counts as one of the network: authentication is refused in the body of an answer, never by its status.
constexpr StatusClass kStatusClasses[] = {
    {Curl::kHttpOk, Curl::kHttpOk, RELAYD_RET_SUCCESS},
    {400, 499, RELAYD_RET_ERR_NETWORK},
    {500, 599, RELAYD_RET_ERR_SERVER_BUSY},
};

RELAYD_RET ResultOfStatus(int status) {
    for (const auto& [first, last, ret] : kStatusClasses) {
        if (status >= first && status <= last) {
            return ret;
        }
    }
    return RELAYD_RET_ERR_UNKNOWN;
}

RELAYD_RET ResultOfFailure(CURLcode code) {
    if (code == CURLE_COULDNT_RESOLVE_HOST) {
        return RELAYD_RET_ERR_RESOLV;
    }
    return Curl::IsNetworkError(code) ? RELAYD_RET_ERR_NETWORK : kTransferFailed;
}

bool ParseOrLog(const std::string& text, Json::Value& out) {
    if (JsonText::Parse(text, out)) {
        return true;
    }
    RELAY_LOG(LOG_DEBUG, "failed to parse response: %s", Form::Masked(text).c_str());
    return false;
}

}  // namespace

void CurlCleanup::operator()(CURL* handle) const {
    curl_easy_cleanup(handle);
}

Request::Request(const char* url, const char* data, bool post) {
    if (url) {
        Set(url, std::string(data ? data : ""), post);
    }
}

Request::Request(const std::string& url, const Json::Value& data, bool post) {
    Set(url, data, post);
}

Request::Request(const Request& other) : url_(other.url_), data_(other.data_) {
    DuplicateHandle(other);
}

Request& Request::operator=(const Request& other) {
    if (this != &other) {
        url_ = other.url_;
        data_ = other.data_;
    }
    async_ = false;
    DuplicateHandle(other);
    return *this;
}

Request::~Request() = default;

// A duplicate still names the other's error buffer and response; it must outlive both.
void Request::DuplicateHandle(const Request& other) {
    handle_.reset(other.handle_ ? curl_easy_duphandle(other.handle_.get()) : nullptr);
    if (handle_) {
        curl_easy_setopt(handle_.get(), CURLOPT_ERRORBUFFER, &errorBuffer_[0]);
    }
    InitSend();
}

bool Request::IsValid() const {
    return handle_ && !url_.empty();
}

bool Request::InitSend() {
    response_.clear();
    done_ = false;
    httpStatus_ = 0;
    if (handle_ &&
        !Curl::SetOption(handle_.get(), CURLOPT_WRITEDATA, "CURLOPT_WRITEDATA", static_cast<void*>(&response_))) {
        handle_.reset();
        return false;
    }
    return true;
}

bool Request::Send() {
    if (!IsValid() || async_ || !InitSend()) {
        return false;
    }
    curlResult_ = curl_easy_perform(handle_.get());
    if (curlResult_ != CURLE_OK) {
        RELAY_LOG(LOG_ERR, "curl_easy_perform failed (%d): [%s]", curlResult_, url_.c_str());
        return false;
    }
    done_ = true;
    httpStatus_ = GetHttpStatus();
    return httpStatus_ == Curl::kHttpOk;
}

bool Request::JobAdd(void* multi) {
    if (!IsValid() || !multi || !InitSend()) {
        return false;
    }
    // A job that is given up while its name is being resolved must not hold its engine until the resolver is done. A refusal
    // costs time alone.
    curl_easy_setopt(handle_.get(), CURLOPT_QUICK_EXIT, 1L);
    if (curl_multi_add_handle(multi, handle_.get()) != CURLM_OK) {
        RELAY_LOG(LOG_ERR, "curl_multi_add_handle() failed");
        return false;
    }
    int running = 0;
    const CURLMcode code = curl_multi_socket_action(multi, CURL_SOCKET_TIMEOUT, 0, &running);
    if (code != CURLM_OK && code != CURLM_CALL_MULTI_PERFORM) {
        RELAY_LOG(LOG_ERR, "curl_multi_socket_action failed");
        return false;
    }
    async_ = true;
    return true;
}

bool Request::JobDone(CURLcode code) {
    done_ = true;
    const int status = GetHttpStatus();
    curlResult_ = code;
    httpStatus_ = status;
    return true;
}

bool Request::JobRemove(void* multi) {
    if (!multi) {
        return false;
    }
    if (curl_multi_remove_handle(multi, handle_.get()) != CURLM_OK) {
        RELAY_LOG(LOG_ERR, "curl_multi_remove_handle() failed");
        return false;
    }
    async_ = false;
    handle_.reset();
    return true;
}

int Request::GetHttpStatus() {
    if (httpStatus_ != 0) {
        return httpStatus_;
    }
    if (!IsValid() || !done_) {
        return -1;
    }
    long status = -1;
    const CURLcode code = curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status);
    if (code != CURLE_OK) {
        RELAY_LOG(LOG_ERR, "Fail to get curl http info: %d, %s", code, curl_easy_strerror(code));
        return -1;
    }
    SaveCookies();
    return static_cast<int>(status);
}

CURLcode Request::GetCurlResult() const {
    return curlResult_;
}

std::string Request::GetResponse() const {
    return done_ && httpStatus_ == Curl::kHttpOk ? response_ : std::string();
}

bool Request::GetResponse(Json::Value& out) const {
    return done_ && httpStatus_ == Curl::kHttpOk && ParseOrLog(response_, out);
}

const std::string& Request::GetUrl() const {
    return url_;
}

const std::string& Request::GetData() const {
    return data_;
}

bool Request::GetData(Json::Value& out) const {
    return ParseOrLog(data_, out);
}

RELAYD_RET Request::GetError() const {
    if (curlResult_ != CURLE_OK) {
        if (gFailures.IsNew(curlResult_)) {
            RELAY_LOG(LOG_ERR, "curl error: %d, %s", curlResult_, curl_easy_strerror(curlResult_));
        }
        return ResultOfFailure(curlResult_);
    }
    gFailures.End();
    if (httpStatus_ != Curl::kHttpOk) {
        RELAY_LOG(LOG_INFO, "http status: %d", httpStatus_);
    }
    return ResultOfStatus(httpStatus_);
}

bool Request::Write(Json::Value& out) const {
    JsonText::EnsureObject(out)["url"] = url_;
    out["data"] = data_;
    out["mode"] = async_ ? "async" : "sync";
    if (done_) {
        out["http_status"] = httpStatus_;
        out["response"] = GetResponse();
    }
    return true;
}

bool Request::operator==(const void* handle) const {
    return handle_.get() == handle;
}

bool Request::operator!=(const void* handle) const {
    return !(*this == handle);
}

}  // namespace ARDV::Relay
