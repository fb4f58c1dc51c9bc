// SPDX-License-Identifier: Apache-2.0
/** @file Members of a JSON object that somebody else wrote, and that may be anything. */
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <json/value.h>

namespace ardv::ctl {

/** A member of an object; null if there is none, and for what is no object. */
const Json::Value* Member(const Json::Value& object, std::string_view name);

/** The text of a member; empty unless it is one. */
std::string TextOf(const Json::Value& object, std::string_view name);

/** The number of a member; no value unless it is a whole one. */
std::optional<std::int64_t> NumberOf(const Json::Value& object, std::string_view name);

}  // namespace ardv::ctl
