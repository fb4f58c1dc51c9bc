// SPDX-License-Identifier: Apache-2.0
#include <relay/common/vocabulary.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include <relay/utils/json_text.h>

namespace ARDV::Relay {

// The order matters: the first match wins.
const AliasRetMap gRetMapper[17] = {
    {ALIAS_RET_SUCCESS, ALIAS_RETRY_TYPE_LATER, "success", "good"},
    {ALIAS_RET_911, ALIAS_RETRY_TYPE_LATER, "error_911", "911"},
    {ALIAS_RET_SYSTEM, ALIAS_RETRY_TYPE_LATER, "error_system", "badsys"},
    {ALIAS_RET_NETWORK, ALIAS_RETRY_TYPE_LATER, "error_network", ""},
    {ALIAS_RET_DNS, ALIAS_RETRY_TYPE_RESOLVE, "error_dns", ""},
    {ALIAS_RET_SERVER_BUSY, ALIAS_RETRY_TYPE_LATER, "error_server_busy", ""},
    {ALIAS_RET_AUTH, ALIAS_RETRY_TYPE_USER, "error_auth", "badauth"},
    {ALIAS_RET_BAD_IP, ALIAS_RETRY_TYPE_USER, "error_bad_ip", "badip"},
    {ALIAS_RET_NOT_FOUND, ALIAS_RETRY_TYPE_LATER, "error_not_found", "alias_not_found"},
    {ALIAS_RET_INUSED, ALIAS_RETRY_TYPE_USER, "error_inused", "alias_inused"},
    {ALIAS_RET_SELF_INUSED, ALIAS_RETRY_TYPE_USER, "error_self_inused", "alias_self_inused"},
    {ALIAS_RET_BAD_PARAM, ALIAS_RETRY_TYPE_LATER, "error_bad_param", "badparam"},
    {ALIAS_RET_UNKNOWN, ALIAS_RETRY_TYPE_LATER, "error_unknown", ""},
    {ALIAS_RET_API_KEY_EXPIRED, ALIAS_RETRY_TYPE_LATER, "error_api_key_expired", "api_key_expired"},
    {ALIAS_RET_NOT_SET, ALIAS_RETRY_TYPE_NONE, "not_set", ""},
    {ALIAS_RET_VIOLATION, ALIAS_RETRY_TYPE_USER, "error_violation", "violation"},
    {static_cast<ALIAS_RET>(0), ALIAS_RETRY_TYPE_NONE, "", ""},
};

namespace {

template <typename Code>
struct Text {
    Code code;
    std::string_view text;
};

constexpr Text<RELAYD_STATE> kStates[] = {
    {RELAYD_STATE_NOT_RUNNING, "not_running"},
    {RELAYD_STATE_STARTING, "starting"},
    {RELAYD_STATE_LOGIN, "login"},
    {RELAYD_STATE_DIRECT_CONNECT, "direct_connect"},
    {RELAYD_STATE_CONNECTED, "connected"},
    {RELAYD_STATE_CONNECTED_RELAY, "connected"},
    {RELAYD_STATE_LOGOUT, "logout"},
    {RELAYD_STATE_STOPPED, "stoped"},  // readers of the status file compare against this spelling
};

constexpr Text<RELAYD_RET> kResults[] = {
    {RELAYD_RET_SUCCESS, "success"},
    {RELAYD_RET_ERR_CONFIG, "err_config"},
    {RELAYD_RET_ERR_REGISTER, "err_register"},
    {RELAYD_RET_ERR_NETWORK, "err_network"},
    {RELAYD_RET_ERR_RESOLV, "err_resolv"},
    {RELAYD_RET_ERR_AUTH, "err_auth"},
    {RELAYD_RET_ERR_NOT_SUPPORT, "err_not_support"},
    {RELAYD_RET_ERR_SERVER_BUSY, "err_server_busy"},
    {RELAYD_RET_ERR_LOCK, "err_lock"},
    {RELAYD_RET_ERR_SERVER_LIMIT, "err_server_limit"},
    {RELAYD_RET_ERR_SERVER_CHANGED, "err_server_changed"},
    {RELAYD_RET_ERR_SERVER_IP_CHANGED, "err_server_ip_changed"},
    {RELAYD_RET_ERR_API_KEY_EXPIRED, "err_api_key_expired"},
    {RELAYD_RET_ERR_VIOLATION, "err_violation"},
};

constexpr Text<RELAYSERVER_ERR> kServerErrors[] = {
    {RELAYSERVER_ERR_SUCCESS, "SUCCESS"},
    {RELAYSERVER_ERR_UNKNOWN, "UNKNOWN"},
    {RELAYSERVER_ERR_AUTH, "AUTH"},
    {RELAYSERVER_ERR_NO_SUCH_API, "NO_SUCH_API"},
    {RELAYSERVER_ERR_NO_SUCH_SERV, "NO_SUCH_SERV"},
    {RELAYSERVER_ERR_NOT_SUPPORTED_VERSION, "NOT_SUPPORTED_VERSION"},
    {RELAYSERVER_ERR_SESSION_TIMEOUT, "SESSION_TIMEOUT"},
    {RELAYSERVER_ERR_HAS_TUNNEL, "HAS_TUNNEL"},
    {RELAYSERVER_ERR_TL_FAIL, "TL_FAIL"},
    {RELAYSERVER_ERR_INPUT, "INPUT"},
    {RELAYSERVER_ERR_DDNS_OCCUPIED, "DDNS_OCCUPIED"},
    {RELAYSERVER_ERR_SERVER_LIMIT, "SERVER_LIMIT"},
    {RELAYSERVER_ERR_SERVER_CHANGED, "SERVER_CHANGED"},
    {RELAYSERVER_ERR_IP_CHANGED, "IP_CHANGED"},
    {RELAYSERVER_ERR_API_KEY_EXPIRED, "API_KEY_EXPIRED"},
};

struct ErrorMap {
    RELAYSERVER_ERR err;
    RELAYD_RET ret;
};

// Every other number is something that this daemon does not support.
constexpr ErrorMap kErrorMap[] = {
    {RELAYSERVER_ERR_SUCCESS, RELAYD_RET_SUCCESS},
    {RELAYSERVER_ERR_UNKNOWN, RELAYD_RET_ERR_UNKNOWN},
    {RELAYSERVER_ERR_AUTH, RELAYD_RET_ERR_AUTH},
    {RELAYSERVER_ERR_SESSION_TIMEOUT, RELAYD_RET_ERR_AUTH},
    {RELAYSERVER_ERR_HAS_TUNNEL, RELAYD_RET_ERR_UNKNOWN},
    {RELAYSERVER_ERR_TL_FAIL, RELAYD_RET_ERR_UNKNOWN},
    {RELAYSERVER_ERR_DDNS_OCCUPIED, RELAYD_RET_ERR_AUTH},
    {RELAYSERVER_ERR_SERVER_LIMIT, RELAYD_RET_ERR_SERVER_LIMIT},
    {RELAYSERVER_ERR_SERVER_CHANGED, RELAYD_RET_ERR_SERVER_CHANGED},
    {RELAYSERVER_ERR_IP_CHANGED, RELAYD_RET_ERR_SERVER_IP_CHANGED},
    {RELAYSERVER_ERR_API_KEY_EXPIRED, RELAYD_RET_ERR_API_KEY_EXPIRED},
    {RELAYSERVER_ERR_VIOLATION, RELAYD_RET_ERR_VIOLATION},
};

template <typename Code, std::size_t N>
const Text<Code>* FindText(const Text<Code> (&table)[N], Code code) {
    const auto* row =
        std::find_if(std::begin(table), std::end(table), [code](const auto& r) { return r.code == code; });
    return row == std::end(table) ? nullptr : row;
}

template <typename Code, std::size_t N>
std::string TextOr(const Text<Code> (&table)[N], Code code, std::string_view other) {
    const auto* row = FindText(table, code);
    return std::string(row ? row->text : other);
}

}  // namespace

std::string GetStateStr(RELAYD_STATE state) {
    return TextOr(kStates, state, "error");
}

std::string GetErrorStr(RELAYD_RET ret) {
    return TextOr(kResults, ret, "err_unknown");
}

std::string GetServerErrorStr(RELAYSERVER_ERR err) {
    const auto* row = FindText(kServerErrors, err);
    return row ? std::string(row->text) : "(unknown errno: " + std::to_string(static_cast<std::int32_t>(err)) + ")";
}

RELAYD_RET RespErrMap(RELAYSERVER_ERR err) {
    const auto* row =
        std::find_if(std::begin(kErrorMap), std::end(kErrorMap), [err](const auto& r) { return r.err == err; });
    return row == std::end(kErrorMap) ? RELAYD_RET_ERR_NOT_SUPPORT : row->ret;
}

RELAYSERVER_ERR ParseServerError(const Json::Value& answer) {
    const Json::Value* number = JsonText::Member(answer.isArray() ? answer[0U] : answer, "errno");
    // A real number does not count here, although the JSON library's isInt() takes 5.0 for an integer.
    if (!number || !number->isInt() || number->type() == Json::realValue) {
        return RELAYSERVER_ERR_UNKNOWN;
    }
    return static_cast<RELAYSERVER_ERR>(number->asInt());
}

}  // namespace ARDV::Relay
