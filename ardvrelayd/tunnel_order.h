// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include <json/value.h>

namespace ardv::daemon {

/** A tunnel that the service asks for. */
struct TunnelOrder {
    Json::Value relay;       ///< object: "relay_ip", "relay_ipv6", "relay_user", "relay_pass" (strings); a secret
    Json::Value candidates;  ///< array: ways to reach the relay, in the order in which they are to be tried

    bool operator==(const TunnelOrder& other) const = default;
};

/** The most candidates of an order; those behind them are passed over. */
inline constexpr Json::ArrayIndex kMaxCandidates = 16;

/**
 * Reads an order from what a server sent.
 *
 * @param members an object with "relay" and "candidates"
 * @return nothing unless both are there, and each member of the relay is missing or fit: relay_ip is a host's name or IPv4 address, relay_ipv6 an
 *         IPv6 address, relay_user at most 64 printable characters without "/" and blanks, relay_pass at most 500 printable ones. Whether
 *         what must be there is there, and what candidates are worth, the tunnel tells.
 */
std::optional<TunnelOrder> ReadTunnelOrder(const Json::Value& members);

}  // namespace ardv::daemon
