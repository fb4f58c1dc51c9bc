// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <json/value.h>

/** The IPv6 addresses of an interface, as the servers are told them. */
namespace ARDV::Relay::IPv6Addresses {

/** Whether the device could be asked. An interface that has no address could. */
bool AreReadable(const std::string& interface);

/**
 * The first 32 addresses of an interface: an array of objects with "address" (text), "prefix_length" (integer), "scope" (see
 * `ScopeOf`) and "addr_type" (the platform's `ArdvIPv6AddressType`). Empty if there are none, or if the device cannot be asked.
 */
Json::Value Of(const std::string& interface);

/**
 * The scope of an address: "link" (fe80::/10), "site" (fec0::/10), "loopback" (::1), "compat" (IPv4-compatible: "::" and an
 * IPv4 address greater than 0.0.0.1), "mapped" (::ffff:0:0/96), else "global". The kinds are those of RFC 4291, 2.4 and 2.5.
 */
const char* ScopeOf(const char* address);

}  // namespace ARDV::Relay::IPv6Addresses
