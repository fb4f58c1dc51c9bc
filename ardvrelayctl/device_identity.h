// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include <json/value.h>

#include "command_error.h"

namespace ardv::ctl {

/**
 * The device's identity as the library reads it: "serial", "mac", "token", "timezone", "key" and "model", all strings.
 */
Json::Value ReadIdentity();

/**
 * Why there is no serial number or no token, as a failure to throw or to tell: `kExitNoPermission` where this user may
 * not read them, else `kExitConfig`. Asks the device.
 */
CommandError NoIdentity();

/** What an identity lacks, as a failure to throw or to tell; no value if it is whole. */
std::optional<CommandError> WhatIsMissing(const Json::Value& identity);

}  // namespace ardv::ctl
