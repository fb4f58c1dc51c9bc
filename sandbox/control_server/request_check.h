// SPDX-License-Identifier: Apache-2.0
// Whether a request is as the protocol has it.
#pragma once

#include <json/json.h>

#include <string>
#include <string_view>

#include "vocabulary.h"

namespace ARDV::Sandbox {

/// What is wrong with a request: the error number, and for kInput the member.
struct Refusal {
    ControlError error = ControlError::kSuccess;
    std::string member = {};
};

/// Checks `request`, any JSON value. kSuccess: it is a request of protocol version 1 with a known command, and each of
/// its members is there and of a fitting type and length.
Refusal CheckRequest(const Json::Value& request);

/// The request's "command", if it is one that is known; else empty.
std::string_view CommandOf(const Json::Value& request);

/// True for 1 to `limit` characters of A-Z a-z 0-9 . _ -
bool IsName(const Json::Value& value, size_t limit);

/// True for what may be a host name or an IPv4 address.
bool IsHost(const Json::Value& value);

}  // namespace ARDV::Sandbox
