// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What has a fixed name about a tunnel (see `Tunnel`), for those who look at it from outside.
 */
#pragma once

namespace ARDV::Relay::TunnelNames {

inline constexpr const char kProgram[] = "/usr/sbin/openvpn";
inline constexpr const char kInterface[] = "tun1000";
inline constexpr const char kChain[] = "TETHRA_RELAY";  ///< of the packet filter

/** Files of a tunnel that is there: what its up script tells, and the password's, whose name ends in the user's. */
inline constexpr const char kInformationFile[] = "/tmp/.ardv_tethra_tunnel_info";
inline constexpr const char kPassFilePrefix[] = "/tmp/.tunnel.";

/** What is installed for tunnels. */
inline constexpr const char kCertificateAuthority[] = "/usr/ardv/etc.defaults/ardvrelayd/ca/ca.crt";
inline constexpr const char kUpScript[] = "/usr/ardv/etc.defaults/ardvrelayd/scripts/up.sh";
inline constexpr const char kDownScript[] = "/usr/ardv/etc.defaults/ardvrelayd/scripts/down.sh";
inline constexpr const char kControlScript[] = "/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh";

}  // namespace ARDV::Relay::TunnelNames
