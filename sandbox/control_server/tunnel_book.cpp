// SPDX-License-Identifier: Apache-2.0
#include "tunnel_book.h"

#include <arpa/inet.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "http/file.h"
#include "http/random_name.h"
#include "request_check.h"

namespace ARDV::Sandbox {
namespace {

constexpr size_t kUserBytes = 8;
constexpr size_t kPasswordBytes = 24;
constexpr size_t kMaxUser = 64;       // what an OpenVPN server takes as a common name
constexpr size_t kMaxPassword = 500;  // what OpenVPN 2.6 carries
constexpr Json::ArrayIndex kMaxCandidates = 256;
constexpr Json::ArrayIndex kMaxForwards = 64;

// It names files of the relay's.
bool IsUser(const Json::Value& value) {
    return IsName(value, kMaxUser) && value.asString().front() != '.';
}

// A line of the users' file is taken apart at its blanks.
bool IsPassword(const Json::Value& value) {
    const std::string text = value.isString() ? value.asString() : "";
    return !text.empty() && text.size() <= kMaxPassword &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
}

bool IsIPv6OrEmpty(const Json::Value& value) {
    const std::string text = value.isString() ? value.asString() : "?";
    in6_addr address{};
    return text.empty() || ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

// Some candidates are meant to be wrong: a device must bear with them.
bool AreCandidates(const Json::Value& value) {
    return value.isArray() && value.size() <= kMaxCandidates;
}

bool IsPort(const Json::Value& value) {
    return value.isInt() && value.asInt() > 0 && value.asInt() <= 65535;
}

bool IsForward(const Json::Value& value) {
    return value.isObject() && IsPort(value["public"]) && IsPort(value["device"]);
}

bool AreForwards(const Json::Value& value) {
    if (value.isNull()) {
        return true;
    }
    return value.isArray() && value.size() <= kMaxForwards && std::all_of(value.begin(), value.end(), IsForward);
}

struct RelayMember {
    const char* name;
    bool (*check)(const Json::Value&);
};

constexpr RelayMember kRelayMembers[] = {
    {"relay_ip", IsHost}, {"relay_ipv6", IsIPv6OrEmpty}, {"relay_user", IsUser}, {"relay_pass", IsPassword}};

Json::Value Completed(const Json::Value& given) {
    Json::Value relay = given;
    const std::pair<const char*, std::string> defaults[] = {{"relay_ipv6", ""},
                                                            {"relay_user", "device-" + RandomName(kUserBytes)},
                                                            {"relay_pass", RandomName(kPasswordBytes)}};
    for (const auto& [name, value] : defaults) {
        if (!relay.isMember(name)) {
            relay[name] = value;
        }
    }
    return relay;
}

std::optional<Json::Value> ReadRelay(const Json::Value& given, std::string& error) {
    if (!given.isObject()) {
        error = "relay must be an object";
        return std::nullopt;
    }
    const Json::Value complete = Completed(given);
    Json::Value relay(Json::objectValue);
    for (const RelayMember& member : kRelayMembers) {
        if (!member.check(complete[member.name])) {
            error = "relay." + std::string(member.name) + " is missing, or not as the protocol has it";
            return std::nullopt;
        }
        relay[member.name] = complete[member.name];
    }
    return relay;
}

std::optional<Json::Value> ReadAssignment(const Json::Value& order, std::string& error) {
    auto relay = ReadRelay(order["relay"], error);
    if (!relay) {
        return std::nullopt;
    }
    if (!AreCandidates(order["candidates"])) {
        error = "candidates must be an array of 256 at most";
        return std::nullopt;
    }
    if (!AreForwards(order["forward"])) {
        error = "forward must be an array of {\"public\", \"device\"}, 64 at most";
        return std::nullopt;
    }
    Json::Value assignment(Json::objectValue);
    assignment["relay"] = std::move(*relay);
    assignment["candidates"] = order["candidates"];
    assignment["forward"] = order["forward"].isNull() ? Json::Value(Json::arrayValue) : order["forward"];
    return assignment;
}

bool HasPublicPort(const Json::Value& assignment, int port) {
    const Json::Value& forwards = assignment["forward"];
    return std::any_of(forwards.begin(), forwards.end(),
                       [&](const Json::Value& forward) { return forward["public"].asInt() == port; });
}

std::string UserLine(const Json::Value& assignment) {
    std::string ports;
    for (const Json::Value& forward : assignment["forward"]) {
        ports += (ports.empty() ? "" : ",") + forward["public"].asString() + ":" + forward["device"].asString();
    }
    const std::string alias = assignment["alias"].asString();
    return assignment["relay"]["relay_user"].asString() + " " + assignment["relay"]["relay_pass"].asString() + " " +
           (alias.empty() ? "-" : alias) + " " + (ports.empty() ? "-" : ports) + "\n";
}

}  // namespace

TunnelBook::TunnelBook(const std::string& usersFile) : usersFile_(usersFile) {}

bool TunnelBook::Begin(std::string& error) {
    const std::lock_guard lock(mutex_);
    return Take({}, error);
}

std::optional<Json::Value> TunnelBook::Assign(const std::string& serverId, const std::string& alias,
                                              const Json::Value& order, std::string& error) {
    auto assignment = ReadAssignment(order, error);
    if (!assignment) {
        return std::nullopt;
    }
    (*assignment)["alias"] = alias;
    const std::lock_guard lock(mutex_);
    Assignments fresh = assignments_;
    fresh.erase(serverId);
    if (!IsFree(fresh, *assignment, error)) {
        return std::nullopt;
    }
    fresh[serverId] = std::move(*assignment);
    if (!Take(std::move(fresh), error)) {
        return std::nullopt;
    }
    Json::Value answer(Json::objectValue);
    answer["relay"] = assignments_[serverId]["relay"];
    answer["candidates"] = assignments_[serverId]["candidates"];
    return answer;
}

bool TunnelBook::Remove(const std::string& serverId, std::string& error) {
    const std::lock_guard lock(mutex_);
    Assignments fresh = assignments_;
    return fresh.erase(serverId) == 0 || Take(std::move(fresh), error);
}

std::optional<Json::Value> TunnelBook::Of(std::string_view serverId) const {
    const std::lock_guard lock(mutex_);
    const auto found = assignments_.find(serverId);
    if (found == assignments_.end()) {
        return std::nullopt;
    }
    Json::Value answer(Json::objectValue);
    answer["relay"] = found->second["relay"];
    answer["candidates"] = found->second["candidates"];
    return answer;
}

Json::Value TunnelBook::Snapshot() const {
    const std::lock_guard lock(mutex_);
    Json::Value json(Json::objectValue);
    for (const auto& [serverId, assignment] : assignments_) {
        json[serverId] = assignment;
    }
    return json;
}

// A login must lead to one device, and so must a public port.
bool TunnelBook::IsFree(const Assignments& others, const Json::Value& assignment, std::string& error) {
    Json::Value seen(Json::objectValue);
    for (const Json::Value& forward : assignment["forward"]) {
        const int port = forward["public"].asInt();
        const bool isTaken = HasPublicPort(seen, port) ||
                             std::any_of(others.begin(), others.end(),
                                         [&](const auto& other) { return HasPublicPort(other.second, port); });
        if (isTaken) {
            error = "the public port " + std::to_string(port) + " is taken";
            return false;
        }
        seen["forward"].append(forward);
    }
    const Json::Value& user = assignment["relay"]["relay_user"];
    if (std::any_of(others.begin(), others.end(),
                    [&](const auto& other) { return other.second["relay"]["relay_user"] == user; })) {
        error = "relay.relay_user is another device's";
        return false;
    }
    return true;
}

bool TunnelBook::Take(Assignments fresh, std::string& error) {
    std::string lines;
    for (const auto& [serverId, assignment] : fresh) {
        lines += UserLine(assignment);
    }
    if (!usersFile_.empty() && !ReplaceFile(usersFile_, lines, error)) {
        return false;
    }
    assignments_ = std::move(fresh);
    return true;
}

}  // namespace ARDV::Sandbox
