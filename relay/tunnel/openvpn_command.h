// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include <relay/tunnel/tunnel_candidate.h>

namespace ARDV::Relay {

/**
 * OpenVPN's arguments, its own name first.
 *
 * @param daemon the process that the up script signals
 * @param isLogged whether OpenVPN keeps a log
 */
std::vector<std::string> OpenVpnCommand(const TunnelCandidate& candidate, const std::string& passFile, pid_t daemon,
                                        bool isLogged);

}  // namespace ARDV::Relay
