// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/error.h"

namespace ARDV::Platform {

using HardwareAddress = std::array<std::uint8_t, 6>;

/// Reads six pairs of hexadecimal digits, joined by ":" or "-" throughout or by nothing. Nothing when the text is
/// anything else.
std::optional<HardwareAddress> ParseHardwareAddress(std::string_view text);

/// True for the address of one device: neither zero nor a group's.
bool IsDeviceAddress(const HardwareAddress& address);

/// The address in lower case with colons.
std::string FormatHardwareAddress(const HardwareAddress& address);

/// The address of the first wired interface of the machine, as <ardv/cloud_identity.h> defines it; ARDV_ERR_NO_DEVICE
/// without one.
Result<HardwareAddress> FirstWiredAddress();

}  // namespace ARDV::Platform
