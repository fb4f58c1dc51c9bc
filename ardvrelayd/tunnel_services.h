// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <relay/config/config.h>

namespace ardv::daemon {

/** A service and the port by which it is reached through the tunnel. */
struct OpenService {
    std::string id;
    std::uint16_t port;

    bool operator==(const OpenService& other) const = default;
};

/**
 * What may be reached through a tunnel, in the order of the configured services: those that are permitted and on at this moment and have a port.
 * The owner's own services count while the service is enabled, those of the maker's support ("support_...") while its channel is.
 */
std::vector<OpenService> PermittedServices(const ARDV::Relay::RelaydConf& configuration);

}  // namespace ardv::daemon
