// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/linux/deadline.h"
#include "platform/linux/error.h"
#include "platform/linux/gateway_http.h"

namespace ARDV::Platform {

/// One of a router's connections to the outside, and where it is controlled.
struct ConnectionService {
    std::string type;  ///< for example "urn:schemas-upnp-org:service:WANIPConnection:2"
    std::string url;   ///< on the gateway
};

/// A TCP port of the router that is forwarded, and to whom.
struct PortMapping {
    int routerPort = 0;
    int port = 0;
    in_addr client{};
};

/// The enabled TCP mappings of a router, in its own order.
struct MappingList {
    std::vector<PortMapping> mappings;
    Failure cut;  ///< why there may be more
};

/// Reads which connections the router describes at `url`; at least one. Failures as of `GatewayHttp`, and
/// ARDV_ERR_BAD_VALUE where the description has no connection on the gateway.
Result<std::vector<ConnectionService>> ReadConnections(GatewayHttp& http, const std::string& url, in_addr gateway,
                                                       const Deadline& deadline);

/// Reads the mappings of all the connections. When time runs out, or the router's answers don't end, the list is what
/// was read until then; a failure when nothing was.
Result<MappingList> ReadMappings(GatewayHttp& http, const std::vector<ConnectionService>& connections,
                                 const Deadline& deadline);

}  // namespace ARDV::Platform
