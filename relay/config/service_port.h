// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The ports of a service on this device. Messages are logged under the source name "service_conf.cpp".
 */
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <ardv/firewall_service.h>

namespace ARDV::Relay::ServicePort {

/**
 * The port at which the device serves a service.
 *
 * @param name name of the firewall's service
 * @param entry its entry in the firewall's list
 * @return the web server's port as 16 bits, or 1 to 65535; nothing, with a message of level 7, if the device names no port or more than one
 */
std::optional<std::int32_t> OnDevice(const std::string& name, const ARDV_FW_SERVICE& entry);

/**
 * The port that the router forwards to a service from outside.
 *
 * @param id identifier of the service
 * @param name name of its firewall service
 * @param port the port at which the device serves it
 * @return 1 to 65535, or -1 if none is known
 */
std::int32_t Outside(const std::string& id, const std::string& name, std::int32_t port);

}  // namespace ARDV::Relay::ServicePort
