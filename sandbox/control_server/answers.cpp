// SPDX-License-Identifier: Apache-2.0
#include "answers.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "request_check.h"

namespace ARDV::Sandbox {
namespace {

bool IsKeepAlive(const Json::Value& value) {
    return value.isInt() && value.asInt() >= kMinKeepAlive && value.asInt() <= kMaxKeepAlive;
}

bool IsSmartDns(const Json::Value& value) {
    return value.isObject() && value.size() == 1 && value["enabled"].isBool();
}

bool IsBoolean(const Json::Value& value) {
    return value.isBool();
}

struct Member {
    std::string_view name;
    bool (*check)(const Json::Value&);
    bool isKeptAlive;  ///< whether the answer to keep_alive has it, too
};

constexpr Member kMembers[] = {
    {"keep_alive", IsKeepAlive, true},
    {"control_host", IsHost, false},
    {"smartdns", IsSmartDns, true},
    {"reachable", IsBoolean, true},
};

const Member* Find(const std::string& name) {
    const auto* found = std::find_if(std::begin(kMembers), std::end(kMembers),
                                     [&](const Member& member) { return member.name == name; });
    return found == std::end(kMembers) ? nullptr : found;
}

}  // namespace

Answers::Answers(int keepAlive) {
    members_["keep_alive"] = keepAlive;
}

bool Answers::Set(const Json::Value& json, std::string& error) {
    if (!json.isObject()) {
        error = "answers must be an object";
        return false;
    }
    for (const std::string& name : json.getMemberNames()) {
        const Member* member = Find(name);
        if (!member || !member->check(json[name])) {
            error = name + (member ? " is not as the protocol has it" : " is not known");
            return false;
        }
    }
    const std::lock_guard lock(mutex_);
    Json::Value fresh = json;
    if (!fresh.isMember("keep_alive")) {
        fresh["keep_alive"] = members_["keep_alive"];
    }
    members_ = std::move(fresh);
    return true;
}

Json::Value Answers::Snapshot() const {
    const std::lock_guard lock(mutex_);
    return members_;
}

void Answers::Tell(std::string_view command, Json::Value& answer) const {
    const std::lock_guard lock(mutex_);
    for (const std::string& name : members_.getMemberNames()) {
        if (command == kRegister || Find(name)->isKeptAlive) {
            answer[name] = members_[name];
        }
    }
}

}  // namespace ARDV::Sandbox
