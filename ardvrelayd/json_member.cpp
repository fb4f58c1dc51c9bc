// SPDX-License-Identifier: Apache-2.0
#include "json_member.h"

#include <json/reader.h>

#include <cstring>
#include <memory>

namespace ardv::daemon {

bool ParseJson(std::string_view text, Json::Value& value, std::string& problems) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    try {
        return reader->parse(text.data(), text.data() + text.size(), &value, &problems);
    } catch (const Json::Exception& problem) {  // too deep
        problems = problem.what();
        return false;
    }
}

const Json::Value* Member(const Json::Value& object, const char* key) {
    return object.isObject() ? object.find(key, key + std::strlen(key)) : nullptr;
}

std::optional<std::string> TextMember(const Json::Value& object, const char* key) {
    const auto* member = Member(object, key);
    return member && member->isString() ? std::optional(member->asString()) : std::nullopt;
}

std::optional<bool> SwitchMember(const Json::Value& object, const char* key) {
    const auto* member = Member(object, key);
    return member && member->isBool() ? std::optional(member->asBool()) : std::nullopt;
}

std::optional<std::int64_t> NumberMember(const Json::Value& object, const char* key) {
    const auto* member = Member(object, key);
    return member && member->isInt64() ? std::optional<std::int64_t>(member->asInt64()) : std::nullopt;
}

const Json::Value* ObjectMember(const Json::Value& object, const char* key) {
    const auto* member = Member(object, key);
    return member && member->isObject() ? member : nullptr;
}

const Json::Value* ArrayMember(const Json::Value& object, const char* key) {
    const auto* member = Member(object, key);
    return member && member->isArray() ? member : nullptr;
}

}  // namespace ardv::daemon
