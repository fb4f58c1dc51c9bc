// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace ardv::daemon {

/**
 * Clears away what a daemon that was killed has left of its tunnel: OpenVPN, rules of the packet filter, password and information file. Does
 * nothing, beyond looking, where the status file names no tunnel and there are no such files. To be called before the status is published.
 */
void ClearTunnelLeftovers();

}  // namespace ardv::daemon
