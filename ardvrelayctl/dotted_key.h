// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Members of nested JSON objects by one key: "server_alias.alias" is the member "alias" of the member "server_alias".
 */
#pragma once

#include <string>
#include <string_view>

#include <json/value.h>

namespace ardv::ctl {

/** The first part of a dotted key. */
std::string_view FirstPart(std::string_view key);

/** The member; null if there is none. */
const Json::Value* FindMember(const Json::Value& object, std::string_view key);

/**
 * Sets a member of an object, and makes the objects on the way to it.
 *
 * @return false, with nothing changed, if something on the way is there and no object
 */
bool SetMember(Json::Value& object, std::string_view key, const Json::Value& value);

/** Removes a member, and the objects on the way to it that are empty then. False if there is none. */
bool RemoveMember(Json::Value& object, std::string_view key);

}  // namespace ardv::ctl
