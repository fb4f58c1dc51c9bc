// SPDX-License-Identifier: Apache-2.0
#include "control_messages.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "address_text.h"
#include "json_member.h"

namespace ardv::daemon {

using namespace ARDV::Relay;
using std::chrono::seconds;

namespace {

constexpr int kProtocolVersion = 1;
constexpr std::size_t kMaxAnswerSize = 1U << 20U;
constexpr std::size_t kMaxIdentifierSize = 64;
constexpr std::size_t kMaxSecretSize = 128;
constexpr Json::ArrayIndex kMaxCommands = 16;
constexpr seconds kShortestKeepAlive{60};
constexpr seconds kLongestKeepAlive{86400};

bool IsAlphanumeric(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool IsIdentifier(const std::string& text, std::size_t maxSize) {
    const auto belongs = [](char c) { return IsAlphanumeric(c) || c == '.' || c == '_' || c == '-'; };
    return !text.empty() && text.size() <= maxSize && std::all_of(text.begin(), text.end(), belongs);
}

Json::Value Message(const char* command) {
    Json::Value message(Json::objectValue);
    message["version"] = kProtocolVersion;
    message["command"] = command;
    return message;
}

// An identifier of the protocol, or an empty text, which is none.
std::string Identifier(const Json::Value& object, const char* key, std::size_t maxSize) {
    auto text = TextMember(object, key).value_or("");
    return IsIdentifier(text, maxSize) ? text : std::string();
}

// What breaks an exchange on its way, and has no name in the library's vocabulary.
constexpr CURLcode kBrokenOnTheWay[] = {
    CURLE_PEER_FAILED_VERIFICATION,
    CURLE_SSL_CACERT_BADFILE,
    CURLE_GOT_NOTHING,
    CURLE_PARTIAL_FILE,
};

RELAYD_RET ResultOf(const Request& request) {
    const auto code = request.GetCurlResult();
    if (std::find(std::begin(kBrokenOnTheWay), std::end(kBrokenOnTheWay), code) != std::end(kBrokenOnTheWay)) {
        return RELAYD_RET_ERR_NETWORK;
    }
    const auto result = request.GetError();
    return GetErrorStr(result) == GetErrorStr(RELAYD_RET_ERR_UNKNOWN) ? RELAYD_RET_ERR_UNKNOWN : result;
}

// By the library the log would show an answer that is no JSON, and half an answer may hold a whole secret.
bool ParseAnswer(const std::string& text, Json::Value& body) {
    std::string problems;
    return text.size() <= kMaxAnswerSize && ParseJson(text, body, problems) && body.isObject();
}

}  // namespace

Answer ReadAnswer(const Request& request) {
    Answer answer;
    answer.result = ResultOf(request);
    if (const auto code = request.GetCurlResult(); code != CURLE_OK) {
        answer.reason = curl_easy_strerror(code);
    }
    if (answer.result != RELAYD_RET_SUCCESS) {
        return answer;
    }
    answer.result = RELAYD_RET_ERR_UNKNOWN;
    Json::Value body;
    if (!ParseAnswer(request.GetResponse(), body)) {
        return answer;
    }
    answer.serverError = ParseServerError(body);
    answer.result = RespErrMap(*answer.serverError);
    answer.body = std::move(body);
    return answer;
}

Json::Value RegisterMessage(const RelaydConf& configuration, const NetworkConf& network, const AuthConf& identity) {
    Json::Value all;
    configuration.Write(all, true);
    auto message = Message("register");
    identity.Write(message["identity"], true);
    network.Write(message["network"], true);
    message["service"] = all["service"];
    message["smartdns"] = all["server_smartdns"];
    message["daemon"]["version"] = ARDV_VERSION;
    if (!configuration.GetServerId().empty()) {
        message["serverID"] = configuration.GetServerId();
    }
    if (configuration.GetAliasConf().IsAliasEnabled()) {
        message["alias"] = configuration.GetAliasConf().GetAliasName();
    }
    return message;
}

namespace {

Json::Value SessionMessage(const char* command, const Credentials& credentials) {
    auto message = Message(command);
    message["serverID"] = credentials.serverId;
    message["session"] = credentials.session;
    return message;
}

}  // namespace

Json::Value KeepAliveMessage(const Credentials& credentials) {
    return SessionMessage("keep_alive", credentials);
}

Json::Value TunnelMessage(const Credentials& credentials) {
    return SessionMessage("get_tunnel", credentials);
}

Json::Value WithTunnel(Json::Value message, const Json::Value& tunnel) {
    if (!tunnel.isNull()) {
        message["tunnel"] = tunnel;
    }
    return message;
}

Json::Value WaitMessage(const Credentials& credentials, const std::vector<CommandResult>& results) {
    auto message = Message("wait");
    message["serverID"] = credentials.serverId;
    message["channel"] = credentials.channel;
    for (const auto& [id, result] : results) {
        Json::Value row(Json::objectValue);
        row["id"] = id;
        row["result"] = static_cast<int>(result);
        message["results"].append(row);
    }
    return message;
}

std::optional<Registration> ReadRegistration(const Json::Value& answer) {
    Registration registration;
    auto& credentials = registration.credentials;
    credentials.serverId = Identifier(answer, "serverID", kMaxIdentifierSize);
    credentials.session = Identifier(answer, "session", kMaxSecretSize);
    credentials.channel = Identifier(answer, "channel", kMaxSecretSize);
    if (credentials.serverId.empty() || credentials.session.empty() || credentials.channel.empty()) {
        return std::nullopt;
    }
    registration.terms = ReadTerms(answer);
    return registration;
}

Terms ReadTerms(const Json::Value& answer) {
    Terms terms;
    if (const auto number = NumberMember(answer, "keep_alive")) {
        terms.keepAlive = seconds(std::clamp(*number, kShortestKeepAlive.count(), kLongestKeepAlive.count()));
    }
    if (const auto* smartDns = ObjectMember(answer, "smartdns")) {
        terms.smartDns = SwitchMember(*smartDns, "enabled");
    }
    terms.reachable = SwitchMember(answer, "reachable");
    return terms;
}

std::optional<std::string> ReadControlHost(const Json::Value& answer) {
    auto host = TextMember(answer, "control_host");
    return host && IsHostName(*host) ? host : std::nullopt;
}

std::vector<ServerCommand> ReadCommands(const Json::Value& answer) {
    std::vector<ServerCommand> commands;
    const auto* list = ArrayMember(answer, "commands");
    const auto count = list ? std::min(list->size(), kMaxCommands) : 0;
    for (Json::ArrayIndex i = 0; i < count; ++i) {
        const auto& row = (*list)[i];
        auto id = Identifier(row, "id", kMaxIdentifierSize);
        if (!id.empty()) {
            commands.push_back({std::move(id), TextMember(row, "command").value_or(""), row});
        }
    }
    return commands;
}

}  // namespace ardv::daemon
