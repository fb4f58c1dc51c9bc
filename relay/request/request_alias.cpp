// SPDX-License-Identifier: Apache-2.0
#include <relay/request/request_alias.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <span>

#include <relay/config/auth_conf.h>
#include <relay/daemon/log.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("request_alias.cpp");

namespace ARDV::Relay {

namespace {

constexpr const char* kIdentityFields[] = {"mac", "key", "model"};
constexpr const char* kMapTexts[] = {"alias",         "serial",  "token",    "id",   "kova_account",
                                     "kova_password", "kova_id", "auth_key", "force"};
constexpr const char* kMapNumbers[] = {"smartdns_support_type"};
constexpr const char* kOwnerTexts[] = {"alias", "serial", "token", "id"};
constexpr const char* kQueryTexts[] = {"alias"};

struct Command {
    ALIAS_REQUEST_CMD cmd;
    const char* action;
    const char* page;
    std::span<const char* const> texts;
    std::span<const char* const> numbers;
};

constexpr Command kCommands[] = {
    {ALIAS_REQUEST_CMD_MAP, "map_alias", "alias_update.php", kMapTexts, kMapNumbers},
    {ALIAS_REQUEST_CMD_DELETE, "delete_alias", "alias_update.php", kOwnerTexts, {}},
    {ALIAS_REQUEST_CMD_KEEP_ALIVE, "keep_alive_alias", "alias_update.php", kOwnerTexts, {}},
    {ALIAS_REQUEST_CMD_QUERY, "query_alias", "alias_query.php", kQueryTexts, {}},
};

const Command* FindCommand(ALIAS_REQUEST_CMD cmd) {
    const auto* row =
        std::find_if(std::begin(kCommands), std::end(kCommands), [cmd](const auto& c) { return c.cmd == cmd; });
    return row == std::end(kCommands) ? nullptr : row;
}

struct RequiredField {
    const char* key;
    const char* missing;
    const char* wrong;
};

constexpr RequiredField kRequiredFields[] = {
    {"alias", "alias name is not found", "alias name is not string or empty"},
    {"serial", "serial is not found", "serial is not string or empty"},
    {"token", "token is not found", "token is not string or empty"},
    {"url", "url is not found", "url is not string or empty"},
    {"id", "nubo_id is not found", "id is not string or empty"},
};

const char* WhatIsWrongWith(const Json::Value& data) {
    if (!data.isObject()) {
        return "data should be an object";
    }
    for (const auto& field : kRequiredFields) {
        if (!JsonText::Member(data, field.key)) {
            return field.missing;
        }
    }
    for (const auto& field : kRequiredFields) {
        if (JsonText::StringMember(data, field.key).value_or("").empty()) {
            return field.wrong;
        }
    }
    return nullptr;
}

Json::Value IdentityFields(const AuthConf& auth) {
    Json::Value identity;
    auth.Write(identity, false);
    Json::Value fields(Json::objectValue);
    for (const char* key : kIdentityFields) {
        fields[key] = identity[key];
    }
    return fields;
}

void AddFields(const Command& command, const Json::Value& data, Json::Value& fields) {
    fields["action"] = command.action;
    for (const char* key : command.texts) {
        if (auto text = JsonText::StringMember(data, key)) {
            fields[key] = *text;
        }
    }
    for (const char* key : command.numbers) {
        if (auto number = JsonText::IntMember(data, key)) {
            fields[key] = *number;
        }
    }
}

std::string TextOf(const Json::Value& value) {
    if (value.isConvertibleTo(Json::stringValue)) {
        return value.asString();
    }
    std::string text = JsonText::Compact(value);
    text.pop_back();  // the line feed at its end
    return text;
}

struct CurlTextFree {
    void operator()(char* text) const { curl_free(text); }
};

using CurlText = std::unique_ptr<char, CurlTextFree>;

CurlText Escape(CURL* handle, const std::string& text) {
    return CurlText(curl_easy_escape(handle, text.data(), static_cast<int>(text.size())));
}

}  // namespace

AliasRequest::AliasRequest() : request_(nullptr, nullptr, false) {}

AliasRequest::~AliasRequest() = default;

bool AliasRequest::SetRequest(ALIAS_REQUEST_CMD cmd, const Json::Value& data) {
    const AuthConf auth(true);
    if (!IsDataValid(data)) {
        return false;
    }
    requestData_ = IdentityFields(auth);
    if (cmd == ALIAS_REQUEST_CMD_REFUSED) {
        syslog(LOG_ERR, "not specify request");
        return false;
    }
    std::string page;
    if (const auto* command = FindCommand(cmd)) {
        AddFields(*command, data, requestData_);
        page = command->page;
    }
    post_.clear();
    ToPostRequest(requestData_, post_);
    url_ = data["url"].asString() + "/" + page;
    request_.Set(url_, post_, true);
    return true;
}

bool AliasRequest::IsDataValid(const Json::Value& data) const {
    if (const char* fault = WhatIsWrongWith(data)) {
        RELAY_LOG(LOG_ERR, "%s", fault);
        return false;
    }
    return true;
}

void AliasRequest::ToPostRequest(const Json::Value& fields, std::string& out) {
    const std::unique_ptr<CURL, CurlCleanup> handle(curl_easy_init());
    if (!handle || !fields.isObject()) {
        return;
    }
    for (auto member = fields.begin(); member != fields.end(); ++member) {
        if (member != fields.begin()) {
            out += '&';
        }
        if (const auto escaped = Escape(handle.get(), TextOf(*member))) {
            out += member.name();
            out += '=';
            out += escaped.get();
        }
    }
}

bool AliasRequest::GetRequest(Json::Value& fields, std::string& url) const {
    if (requestData_.empty()) {
        return false;
    }
    url = url_;
    fields = requestData_;
    return true;
}

bool AliasRequest::GetRequest(std::string& url, std::string& post) const {
    if (requestData_.empty()) {
        return false;
    }
    url = url_;
    ToPostRequest(requestData_, post);
    return true;
}

bool AliasRequest::Send(ALIAS_RET& ret, ALIAS_RESPONSE_TYPE& type) {
    if (!request_.IsValid()) {
        RELAY_LOG(LOG_ERR, "No valid request found!! Please call SetRequest() first");
        return false;
    }
    request_.Send();
    ret = ALIAS_RET_UNKNOWN;
    type = ALIAS_RESPONSE_TYPE_NONE;
    std::string body;
    int status = -1;
    const bool answered = ParseCURLHttp(ret, body, status);
    httpStatus_ = status;
    if (!answered) {
        return true;  // the exchange took place, and `ret` tells what went wrong
    }
    type = ALIAS_RESPONSE_TYPE_TEXT;
    responseText_ = Trim(body);
    Json::Value answer;
    if (JsonText::Parse(responseText_, answer) && answer.isObject()) {
        type = ALIAS_RESPONSE_TYPE_JSON;
        responseJson_ = std::move(answer);
        ret = ALIAS_RET_SUCCESS;
        return true;
    }
    ret = ALIAS_RET_UNKNOWN;
    return ParseServerResponse(responseText_, ret);
}

bool AliasRequest::Send(ALIAS_RET& ret) {
    ALIAS_RESPONSE_TYPE type = ALIAS_RESPONSE_TYPE_NONE;
    return Send(ret, type);
}

void AliasRequest::GetResponse(Json::Value& out) const {
    out = responseJson_;
}

void AliasRequest::GetResponse(std::string& out) const {
    out = responseText_;
}

int AliasRequest::GetResponse(int& status) const {
    status = httpStatus_;
    return status;
}

}  // namespace ARDV::Relay
