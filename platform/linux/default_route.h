// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <netinet/in.h>

#include <string>

#include "platform/linux/error.h"

namespace ARDV::Platform {

/// The way out of the device's network (IPv4). Addresses are in network byte order.
struct DefaultRoute {
    std::string interface;
    in_addr gateway{};
    in_addr address{};  ///< the device's own, as the gateway sees it

    bool operator==(const DefaultRoute& other) const;
};

/// Reads the default route of the main table with the lowest metric among those that lead to a gateway. Sends nothing.
/// ARDV_ERR_NO_DEVICE without one.
Result<DefaultRoute> ReadDefaultRoute();

}  // namespace ARDV::Platform
