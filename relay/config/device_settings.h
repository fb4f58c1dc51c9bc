// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/** Settings of the device itself, in "/etc/ardvinfo.conf". */
namespace ARDV::Relay::DeviceSettings {

/** Whether the key has exactly this value. */
bool Is(const char* key, const char* value);

/** "timezone", at most 255 bytes; empty if there is none. */
std::string TimeZone();

}  // namespace ARDV::Relay::DeviceSettings
