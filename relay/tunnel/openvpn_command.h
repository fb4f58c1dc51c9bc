// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include <relay/tunnel/tunnel_candidate.h>

namespace ARDV::Relay {

/** The program that `OpenVpnCommand` is for. */
inline constexpr const char kOpenVpnProgram[] = "/usr/sbin/openvpn";

/** The interface that OpenVPN makes. */
inline constexpr const char kTunnelInterface[] = "tun1000";

/**
 * OpenVPN's arguments, its own name first.
 *
 * @param daemon the process that the up script signals
 * @param isLogged whether OpenVPN keeps a log
 */
std::vector<std::string> OpenVpnCommand(const TunnelCandidate& candidate, const std::string& passFile, pid_t daemon,
                                        bool isLogged);

}  // namespace ARDV::Relay
