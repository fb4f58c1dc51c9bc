// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * JSON as text, and members of values that somebody else wrote. The JSON library throws on deep nesting and on wrong
 * types; nothing here does.
 */
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <json/value.h>

namespace ARDV::Relay::JsonText {

/** What became of a text that was to be parsed. */
enum class ParseResult {
    kParsed,
    kDamaged,  ///< no JSON, or more than 1,000 values within each other
    kNoMemory  ///< nothing is known of the text
};

/** Parses with the JSON library's permissive default features, without keeping comments. Unless parsed, `value` stays as it was. */
ParseResult TryParse(std::string_view text, Json::Value& value);

/**
 * As `TryParse`.
 *
 * @return false, with `value` as it was, for text that is no JSON, for more than 1,000 values within each other, and for
 *         want of memory
 */
bool Parse(std::string_view text, Json::Value& value);

/** One member a line, indented by three blanks, a line feed at the end: the form of every file. */
std::string Styled(const Json::Value& value);

/** One line, with a line feed at its end: the form of request bodies and log messages. */
std::string Compact(const Json::Value& value);

/** The member of an object; null if `value` is no object or has no such member. */
const Json::Value* Member(const Json::Value& value, std::string_view key);

/** The member's value if it is there and has this JSON type. */
std::optional<std::string> StringMember(const Json::Value& value, std::string_view key);
std::optional<int> IntMember(const Json::Value& value, std::string_view key);
std::optional<bool> BoolMember(const Json::Value& value, std::string_view key);

/** Replaces `setting` by the member if that has the setting's JSON type; else leaves it as it is. */
void Take(const Json::Value& value, std::string_view key, std::string& setting);
void Take(const Json::Value& value, std::string_view key, int& setting);
void Take(const Json::Value& value, std::string_view key, bool& setting);

/** Makes `value` an empty object unless it is an object already. */
Json::Value& EnsureObject(Json::Value& value);

}  // namespace ARDV::Relay::JsonText
