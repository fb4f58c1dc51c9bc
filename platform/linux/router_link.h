// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <netinet/in.h>

#include "platform/linux/error.h"

namespace ARDV::Platform {

/// The way from the device to its router (IPv4). Addresses are in network byte order.
struct RouterLink {
    int interface = 0;  ///< its index
    in_addr gateway{};
    in_addr address{};  ///< the device's own, as the gateway sees it

    bool operator==(const RouterLink& other) const;
};

/// Reads the way along the preferred default route. Sends nothing. ARDV_ERR_NO_DEVICE without one.
Result<RouterLink> ReadRouterLink();

}  // namespace ARDV::Platform
