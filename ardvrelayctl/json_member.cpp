// SPDX-License-Identifier: Apache-2.0
#include "json_member.h"

namespace ardv::ctl {

const Json::Value* Member(const Json::Value& object, std::string_view name) {
    return object.isObject() ? object.find(name.data(), name.data() + name.size()) : nullptr;
}

std::string TextOf(const Json::Value& object, std::string_view name) {
    const auto* text = Member(object, name);
    return text && text->isString() ? text->asString() : "";
}

std::optional<std::int64_t> NumberOf(const Json::Value& object, std::string_view name) {
    const auto* number = Member(object, name);
    return number && number->isInt64() ? std::optional<std::int64_t>(number->asInt64()) : std::nullopt;
}

}  // namespace ardv::ctl
