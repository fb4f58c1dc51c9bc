// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Candidates: the ways to a relay server that the control server offers. What is in them becomes arguments of a
 * program, so nothing passes that is not what it should be.
 */
#pragma once

#include <string>

#include <json/value.h>

namespace ARDV::Relay {

/** One of OpenVPN's protocols. */
struct TunnelProtocol {
    const char* name;
    bool isUdp;
    bool isIpv6;
};

/** Addresses of a relay server. */
struct RelayAddresses {
    const std::string& ipv4;
    const std::string& ipv6;
};

/** One way to a relay server. */
struct TunnelCandidate {
    const TunnelProtocol* protocol = nullptr;
    std::string host;
    std::string port;
    std::string mtu;
    bool isMtuDiscovered = false;
};

/**
 * Reads one element of the list, whatever its "type".
 *
 * @param candidate set only if the result is null
 * @return why it is of no use, in words for a message; null if it is of use
 */
const char* ReadCandidate(const Json::Value& value, const RelayAddresses& addresses, TunnelCandidate& candidate);

/**
 * Tells whether an element of the list is to be skipped.
 *
 * @return why, in words for a message; null if a tunnel is to be tried with it
 */
const char* WhySkipped(const Json::Value& value, const RelayAddresses& addresses, bool allowUdp, bool allowIpv6);

}  // namespace ARDV::Relay
