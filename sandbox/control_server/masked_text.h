// SPDX-License-Identifier: Apache-2.0
// JSON for the log.
#pragma once

#include <json/json.h>

#include <string>

namespace ARDV::Sandbox {

/// `value` as JSON on one line of printable ASCII, at most 4096 bytes ("..." then marks the cut), with "***" for each
/// member that is a secret: token, key, session, channel, relay_user and relay_pass.
std::string Masked(const Json::Value& value);

}  // namespace ARDV::Sandbox
