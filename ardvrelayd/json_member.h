// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * JSON that came from elsewhere. jsoncpp throws where a text nests too deep, and where a value is not of the type that is asked
 * for; these give nothing instead, for a missing member as for one of another type.
 */
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <json/value.h>

namespace ardv::daemon {

/**
 * Reads a text. It is logged nowhere.
 *
 * @param problems what is wrong, in lines, where it is no JSON or nests more than 1,000 values
 * @return whether `value` is what the text says; it is of no use otherwise
 */
bool ParseJson(std::string_view text, Json::Value& value, std::string& problems);

/** The member, or null where `object` is no object or has none. Valid as long as `object`. */
const Json::Value* Member(const Json::Value& object, const char* key);

std::optional<std::string> TextMember(const Json::Value& object, const char* key);
std::optional<bool> SwitchMember(const Json::Value& object, const char* key);

/** Of a JSON integer that fits. */
std::optional<std::int64_t> NumberMember(const Json::Value& object, const char* key);

/** The member where it is an object or an array respectively, else null. */
const Json::Value* ObjectMember(const Json::Value& object, const char* key);
const Json::Value* ArrayMember(const Json::Value& object, const char* key);

/** A number for a JSON document, whatever its type was. */
inline Json::Value Number(std::int64_t number) {
    return Json::Value(Json::Int64{number});
}
inline Json::Value Count(std::uint64_t number) {
    return Json::Value(Json::UInt64{number});
}

}  // namespace ardv::daemon
