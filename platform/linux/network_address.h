// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/error.h"

namespace ARDV::Platform {

/// An IPv4 address of an interface.
struct IPv4Address {
    int index = 0;  ///< of the interface
    in_addr address{};
    int prefixLength = 0;
    bool isSecondary = false;
};

/// An IPv6 address of an interface that the kernel lets be used.
struct IPv6Address {
    int index = 0;  ///< of the interface
    in6_addr address{};
    int prefixLength = 0;
    int type = 0;  ///< an `ArdvIPv6AddressType`
};

/// The IPv4 addresses in the order of their interfaces' indices, an interface's primary ones first.
Result<std::vector<IPv4Address>> ReadIPv4Addresses();

/// The IPv6 addresses in the kernel's order, without those that aren't known to be the device's own.
Result<std::vector<IPv6Address>> ReadIPv6Addresses();

/// A default route through a gateway.
struct DefaultRoute {
    in_addr gateway{};
    int index = 0;  ///< of the interface that leads to it
    std::uint32_t metric = 0;
};

/// The IPv4 default route of the main table that the kernel prefers; ARDV_ERR_NO_VALUE without one.
Result<DefaultRoute> ReadDefaultRoute();

/// The dotted quad of an address.
std::string Text(const in_addr& address);

/// The dotted quad of a net mask.
std::string MaskText(int prefixLength);

/// Reads a dotted quad of four decimal numbers without leading zeros, in host byte order; nothing for anything else.
std::optional<std::uint32_t> ParseIPv4(const char* text);

}  // namespace ARDV::Platform
