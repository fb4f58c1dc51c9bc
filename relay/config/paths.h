// SPDX-License-Identifier: Apache-2.0
#pragma once

/** Where the configuration stands. */
namespace ARDV::Relay::Paths {

inline constexpr const char kMainConfigFile[] = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";
inline constexpr const char kEnvironmentFile[] = "/usr/ardv/etc/ardvrelayd/env.conf";
inline constexpr const char kPermissionFile[] = "/usr/ardv/etc/ardvrelayd/services.conf";

}  // namespace ARDV::Relay::Paths
