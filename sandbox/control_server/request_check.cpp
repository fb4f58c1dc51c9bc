// SPDX-License-Identifier: Apache-2.0
#include "request_check.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <span>

#include "http/text.h"

namespace ARDV::Sandbox {
namespace {

constexpr Json::ArrayIndex kMaxElements = 256;

bool IsText(const Json::Value& value, size_t least, size_t most) {
    if (!value.isString()) {
        return false;
    }
    const std::string text = value.asString();
    return text.size() >= least && text.size() <= most && IsUtf8(text) && !HasControlCharacter(text);
}

template <size_t kMost>
bool IsTextUpTo(const Json::Value& value) {
    return IsText(value, 0, kMost);
}

template <size_t kMost>
bool IsFilledUpTo(const Json::Value& value) {
    return IsText(value, 1, kMost);
}

template <size_t kMost>
bool IsNameUpTo(const Json::Value& value) {
    return IsName(value, kMost);
}

// A device that can't read its address sends an empty one.
bool IsMac(const Json::Value& value) {
    static constexpr std::string_view kShape = "xx:xx:xx:xx:xx:xx";
    const std::string text = value.isString() ? value.asString() : "?";
    return text.empty() || std::equal(text.begin(), text.end(), kShape.begin(), kShape.end(), [](char c, char shape) {
               return shape == 'x' ? std::isxdigit(static_cast<unsigned char>(c)) != 0 : c == shape;
           });
}

bool IsAlias(const Json::Value& value) {
    const std::string text = value.isString() ? Lower(value.asString()) : "";
    return !text.empty() && text.size() <= 63 && text.front() != '-' && text.back() != '-' &&
           text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") == std::string::npos;
}

bool IsObject(const Json::Value& value) {
    return value.isObject();
}

bool IsBoolean(const Json::Value& value) {
    return value.isBool();
}

bool IsInteger(const Json::Value& value) {
    return value.type() == Json::intValue && value.isInt();
}

bool IsPort(const Json::Value& value) {
    return IsInteger(value) && value.asInt() >= 0 && value.asInt() <= 65535;
}

bool IsArrayOf(const Json::Value& value, bool (*isElement)(const Json::Value&)) {
    return value.isArray() && value.size() <= kMaxElements && std::all_of(value.begin(), value.end(), isElement);
}

bool HasOptional(const Json::Value& object, const char* name, bool (*check)(const Json::Value&)) {
    return !object.isMember(name) || check(object[name]);
}

bool IsService(const Json::Value& value) {
    return value.isObject() && IsFilledUpTo<64>(value["id"]) && HasOptional(value, "name", IsTextUpTo<1024>) &&
           HasOptional(value, "port", IsPort) && HasOptional(value, "ext_port", IsPort);
}

bool IsAddress(const Json::Value& value) {
    return value.isObject() && IsFilledUpTo<64>(value["address"]) && IsInteger(value["prefix_length"]);
}

bool AreAddresses(const Json::Value& value) {
    return IsArrayOf(value, IsAddress);
}

bool IsInterface(const Json::Value& value) {
    return value.isObject() && IsFilledUpTo<64>(value["name"]) && IsFilledUpTo<64>(value["ip"]) &&
           IsFilledUpTo<64>(value["mask"]) && HasOptional(value, "ipv6", AreAddresses);
}

bool IsResult(const Json::Value& value) {
    return value.isObject() && IsName(value["id"], kMaxCommandId) && IsInteger(value["result"]);
}

// What a device tells of the tunnel that was ordered.
bool IsTunnel(const Json::Value& value) {
    static constexpr std::string_view kWords[] = {"NONE", "READY", "CLOSE", "FAILED", "INVALID_CONF", "CREATING"};
    const std::string status = value.isObject() && value["status"].isString() ? value["status"].asString() : "";
    return std::find(std::begin(kWords), std::end(kWords), status) != std::end(kWords) &&
           IsTextUpTo<253>(value["relay_ip"]);
}

template <bool (*kIsElement)(const Json::Value&)>
bool IsListOf(const Json::Value& value) {
    return IsArrayOf(value, kIsElement);
}

struct MemberRule {
    std::string_view path;  ///< "NAME" or "OBJECT.NAME"
    bool isRequired;
    bool (*check)(const Json::Value&);
};

constexpr MemberRule kRegisterRules[] = {
    {"identity", true, IsObject},
    {"identity.serial", true, IsFilledUpTo<64>},
    {"identity.mac", true, IsMac},
    {"identity.token", true, IsFilledUpTo<1024>},
    {"identity.key", true, IsTextUpTo<1024>},
    {"identity.model", true, IsTextUpTo<1024>},
    {"identity.timezone", true, IsTextUpTo<255>},
    {"serverID", false, IsNameUpTo<kMaxServerId>},
    {"alias", false, IsAlias},
    {"service", true, IsListOf<IsService>},
    {"network", true, IsObject},
    {"network.interface", true, IsListOf<IsInterface>},
    {"network.gateway", true, IsTextUpTo<64>},
    {"network.ddns", true, IsTextUpTo<1024>},
    {"network.mode", true, IsTextUpTo<64>},
    {"network.fqdn", true, IsTextUpTo<1024>},
    {"network.ipv6_tunnel", true, AreAddresses},
    {"smartdns", true, IsObject},
    {"smartdns.enabled", true, IsBoolean},
    {"daemon", true, IsObject},
    {"daemon.version", true, IsFilledUpTo<64>},
    {"tunnel", false, IsTunnel},
};

constexpr MemberRule kKeepAliveRules[] = {
    {"serverID", true, IsNameUpTo<kMaxServerId>},
    {"session", true, IsNameUpTo<kMaxSession>},
    {"tunnel", false, IsTunnel},
};

constexpr MemberRule kGetTunnelRules[] = {
    {"serverID", true, IsNameUpTo<kMaxServerId>},
    {"session", true, IsNameUpTo<kMaxSession>},
};

constexpr MemberRule kWaitRules[] = {
    {"serverID", true, IsNameUpTo<kMaxServerId>},
    {"channel", true, IsNameUpTo<kMaxSession>},
    {"results", false, IsListOf<IsResult>},
    {"tunnel", false, IsTunnel},
};

struct CommandRules {
    std::string_view command;
    std::span<const MemberRule> rules;
};

constexpr CommandRules kRules[] = {
    {kRegister, kRegisterRules},
    {kKeepAlive, kKeepAliveRules},
    {kWait, kWaitRules},
    {kGetTunnel, kGetTunnelRules},
};

// Null where there is none.
const Json::Value* Find(const Json::Value& request, std::string_view path) {
    const size_t dot = path.find('.');
    const auto head = path.substr(0, dot);
    const Json::Value* found = request.isObject() ? request.find(head.data(), head.data() + head.size()) : nullptr;
    return found && dot != std::string_view::npos ? Find(*found, path.substr(dot + 1)) : found;
}

bool Fits(const MemberRule& rule, const Json::Value& request) {
    const Json::Value* value = Find(request, rule.path);
    return value ? rule.check(*value) : !rule.isRequired;
}

const CommandRules* FindRules(const Json::Value& command) {
    const std::string name = command.isString() ? command.asString() : "";
    const auto* found = std::find_if(std::begin(kRules), std::end(kRules),
                                     [&](const CommandRules& row) { return row.command == name; });
    return found == std::end(kRules) ? nullptr : found;
}

Refusal CheckMembers(const CommandRules& rules, const Json::Value& request) {
    const auto wrong = std::find_if(rules.rules.begin(), rules.rules.end(),
                                    [&](const MemberRule& rule) { return !Fits(rule, request); });
    return wrong == rules.rules.end() ? Refusal{} : Refusal{ControlError::kInput, std::string(wrong->path)};
}

}  // namespace

Refusal CheckRequest(const Json::Value& request) {
    if (!request.isObject()) {
        return {ControlError::kInput, "request"};
    }
    if (!IsInteger(request["version"])) {
        return {ControlError::kInput, "version"};
    }
    if (request["version"].asInt() != 1) {
        return {ControlError::kVersion};
    }
    if (!request["command"].isString()) {
        return {ControlError::kInput, "command"};
    }
    const CommandRules* rules = FindRules(request["command"]);
    return rules ? CheckMembers(*rules, request) : Refusal{ControlError::kNoSuchCommand};
}

std::string_view CommandOf(const Json::Value& request) {
    const CommandRules* rules = request.isObject() ? FindRules(request["command"]) : nullptr;
    return rules ? rules->command : std::string_view();
}

bool IsName(const Json::Value& value, size_t limit) {
    const std::string text = value.isString() ? value.asString() : "";
    return !text.empty() && text.size() <= limit && std::all_of(text.begin(), text.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '_' || c == '-';
    });
}

bool IsHost(const Json::Value& value) {
    const std::string text = value.isString() ? value.asString() : "";
    return !text.empty() && text.size() <= 253 &&
           text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-") ==
               std::string::npos;
}

}  // namespace ARDV::Sandbox
