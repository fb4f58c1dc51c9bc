// SPDX-License-Identifier: Apache-2.0
#include "dotted_key.h"

namespace ardv::ctl {

namespace {

constexpr char kDot = '.';

std::string_view Rest(std::string_view key) {
    const auto dot = key.find(kDot);
    return dot == std::string_view::npos ? std::string_view() : key.substr(dot + 1);
}

bool IsLast(std::string_view key) {
    return key.find(kDot) == std::string_view::npos;
}

const Json::Value* Find(const Json::Value& value, std::string_view name) {
    return value.isObject() ? value.find(name.data(), name.data() + name.size()) : nullptr;
}

bool CanHold(const Json::Value& value, std::string_view key) {
    if (!value.isObject()) {
        return false;
    }
    const auto* member = Find(value, FirstPart(key));
    return IsLast(key) || !member || CanHold(*member, Rest(key));
}

}  // namespace

std::string_view FirstPart(std::string_view key) {
    return key.substr(0, key.find(kDot));
}

const Json::Value* FindMember(const Json::Value& object, std::string_view key) {
    const auto* member = Find(object, FirstPart(key));
    return !member || IsLast(key) ? member : FindMember(*member, Rest(key));
}

bool SetMember(Json::Value& object, std::string_view key, const Json::Value& value) {
    if (!CanHold(object, key)) {
        return false;
    }
    auto* target = &object;
    for (; !IsLast(key); key = Rest(key)) {
        target = &(*target)[std::string(FirstPart(key))];
    }
    auto& member = (*target)[std::string(key)];
    Json::Value content = value;
    member.swapPayload(content);  // the payload alone: comments in the file stay
    return true;
}

bool RemoveMember(Json::Value& object, std::string_view key) {
    if (!FindMember(object, key)) {
        return false;
    }
    const std::string name(FirstPart(key));
    if (IsLast(key)) {
        object.removeMember(name);
        return true;
    }
    RemoveMember(object[name], Rest(key));
    if (object[name].empty()) {
        object.removeMember(name);
    }
    return true;
}

}  // namespace ardv::ctl
