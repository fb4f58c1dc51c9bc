// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <json/value.h>

namespace ardv::ctl {

/**
 * A value as it may be shown: members that are secrets of the protocol, and user names and passwords in URLs, are "***"
 * unless `showSecrets`.
 */
Json::Value Shown(const Json::Value& value, bool showSecrets);

/** Likewise the value of a dotted key. */
Json::Value ShownMember(const std::string& key, const Json::Value& value, bool showSecrets);

/** "***" in the place of a text, or the text if `showSecrets`; an empty one stays empty. */
std::string Masked(const std::string& secret, bool showSecrets);

}  // namespace ardv::ctl
