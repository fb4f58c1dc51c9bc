// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <json/value.h>

namespace ardv::ctl {

/** What to tell the user of a device without serial number and token. */
inline constexpr const char kNoIdentity[] =
    "the device has no identity ('ardvrelayctl identity init' makes one on a test machine): serial and token are "
    "missing "
    "or cannot be read in its token store (--verbose tells more)";

/**
 * The device's identity as the library reads it: "serial", "mac", "token", "timezone", "key" and "model", all strings.
 */
Json::Value ReadIdentity();

/** What an identity lacks, in words for the user; empty if it is whole. */
std::string WhatIsMissing(const Json::Value& identity);

}  // namespace ardv::ctl
