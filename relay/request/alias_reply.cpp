// SPDX-License-Identifier: Apache-2.0
#include <relay/request/request_alias.h>

#include <string_view>

#include <relay/daemon/log.h>
#include <relay/request/form.h>
#include <relay/request/transfer_error.h>

RELAY_LOG_SOURCE("request_alias.cpp");

namespace ARDV::Relay {

namespace {

constexpr int kHttpNotFound = 404;
constexpr int kFirstBusy = 500;
constexpr int kLastBusy = 504;
constexpr signed char kFirstPrintable = 33;
constexpr std::string_view kAliasField = "alias=";

constinit Curl::FailureRun gFailures;

ALIAS_RET ResultOfFailure(CURLcode code) {
    if (code == CURLE_COULDNT_RESOLVE_HOST) {
        return ALIAS_RET_DNS;
    }
    return Curl::IsNetworkError(code) ? ALIAS_RET_NETWORK : ALIAS_RET_UNKNOWN;
}

ALIAS_RET ResultOfStatus(int status) {
    if (status == kHttpNotFound) {
        return ALIAS_RET_NETWORK;
    }
    if (status >= kFirstBusy && status <= kLastBusy) {
        return ALIAS_RET_SERVER_BUSY;
    }
    RELAY_LOG(LOG_ERR, "http status: %d", status);
    return ALIAS_RET_UNKNOWN;
}

// The first row that fits; null at the end mark.
template <typename Fits>
const AliasRetMap* FindRow(Fits fits) {
    for (const auto* row = gRetMapper; !row->status.empty(); ++row) {
        if (fits(*row)) {
            return row;
        }
    }
    return nullptr;
}

bool IsWord(std::string_view reply, std::string_view word) {
    return !word.empty() && reply.substr(0, word.size()) == word &&
           (reply.size() == word.size() || reply[word.size()] == ':');
}

// Bytes above 127 are negative here and go as well: a server's byte order mark or stray blank of another alphabet is no
// part of its word.
bool IsTrimmed(char byte) {
    return static_cast<signed char>(byte) < kFirstPrintable;
}

}  // namespace

bool AliasRequest::ParseCURLHttp(HTTPResponse& response, ALIAS_RET& ret, std::string& body, int& status) {
    if (response.curlCode != CURLE_OK) {
        if (gFailures.IsNew(response.curlCode)) {
            RELAY_LOG(LOG_ERR, "curl error: %d, %s", response.curlCode, curl_easy_strerror(response.curlCode));
        }
        ret = ResultOfFailure(response.curlCode);
        return false;
    }
    gFailures.End();
    Trim(response.body);
    RELAY_LOG(LOG_DEBUG, "HTTP: %d, Response: %s", response.status, response.body.c_str());
    status = response.status;
    if (status != Curl::kHttpOk) {
        ret = ResultOfStatus(status);
        return false;
    }
    body = response.body;
    return true;
}

bool AliasRequest::ParseCURLHttp(ALIAS_RET& ret, std::string& body, int& status) {
    HTTPResponse response{request_.GetHttpStatus(), request_.GetResponse(), request_.GetCurlResult()};
    return ParseCURLHttp(response, ret, body, status);
}

bool AliasRequest::ParseCURLHttp(std::shared_ptr<Request> request, ALIAS_RET& ret, std::string& body) {
    if (!request) {
        ret = ALIAS_RET_UNKNOWN;
        return false;
    }
    HTTPResponse response{request->GetHttpStatus(), request->GetResponse(), request->GetCurlResult()};
    int status = -1;
    return ParseCURLHttp(response, ret, body, status);
}

bool AliasRequest::ParseServerResponse(const std::string& reply, ALIAS_RET& ret) {
    const auto* row = FindRow([&](const AliasRetMap& r) { return IsWord(reply, r.reply); });
    if (!row) {
        return false;
    }
    ret = row->ret;
    return true;
}

bool AliasRequest::ResponseToString(ALIAS_RET ret, std::string& word) {
    const auto* row = FindRow([&](const AliasRetMap& r) { return r.ret == ret; });
    if (!row) {
        RELAY_LOG(LOG_ERR, "Cannot convert response %d", ret);
        return false;
    }
    word = row->status;
    return true;
}

bool AliasRequest::GetRetryType(ALIAS_RET ret, ALIAS_RETRY_TYPE& type) {
    const auto* row = FindRow([&](const AliasRetMap& r) { return r.ret == ret; });
    if (!row) {
        RELAY_LOG(LOG_ERR, "Cannot convert retry type %d", ret);
        return false;
    }
    type = row->retryType;
    return true;
}

std::string& AliasRequest::Trim(std::string& text) {
    text.resize(std::string_view(text.c_str()).size());
    std::size_t last = text.size();
    while (last > 0 && IsTrimmed(text[last - 1])) {
        --last;
    }
    std::size_t first = 0;
    while (first < last && IsTrimmed(text[first])) {
        ++first;
    }
    text.assign(text, first, last - first);
    return text;
}

bool AliasRequest::GetResponseForDaemon(std::shared_ptr<Request> request, ALIAS_RET& ret, std::string& extra) {
    ALIAS_RET outcome = ALIAS_RET_SUCCESS;
    std::string body;
    if (!ParseCURLHttp(request, outcome, body)) {
        ret = outcome;
        return false;
    }
    if (!ParseServerResponse(body, outcome)) {
        RELAY_LOG(LOG_ERR, "Unknown response: %s", body.c_str());
        return false;
    }
    ret = outcome;
    if (const auto colon = body.find(':'); colon != std::string::npos) {
        extra = body.substr(colon + 1);
    }
    return true;
}

bool AliasRequest::GetAliasName(std::shared_ptr<Request> request, std::string& alias) {
    const std::string form = request ? request->GetData() : "";
    for (const auto piece : Form::Split(form)) {
        if (piece.substr(0, kAliasField.size()) == kAliasField) {
            const auto value = piece.substr(kAliasField.size());
            alias = value.substr(0, value.find('='));
            return true;
        }
    }
    RELAY_LOG(LOG_ERR, "not found alias name from post data [%s]", Form::Masked(form).c_str());
    return false;
}

bool AliasRequest::IsSecretField(const std::string& key) {
    return Form::IsSecret(key);
}

}  // namespace ARDV::Relay
