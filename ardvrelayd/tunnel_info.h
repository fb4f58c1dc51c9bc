// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>

namespace ardv::daemon {

/** What OpenVPN's scripts tell of a tunnel that is up. Addresses are empty where they aren't told, or are none. */
struct TunnelInfo {
    pid_t process = -1;  ///< OpenVPN's; -1 where it isn't told
    std::string peer;    ///< the relay's end
    std::string local;   ///< the device's end, IPv4
    std::string localIPv6;
};

/** Reads the tunnel information file. Empty unless that is a regular file of this user with one name. */
TunnelInfo ReadTunnelInfo();

/** Whether the tunnel information file, or whatever stands in its place, is there. */
bool HasTunnelInfo();

}  // namespace ardv::daemon
