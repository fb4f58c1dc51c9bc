// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <relay/config/config.h>

namespace ardv::ctl {

/** Why a service is not offered: the test that it fails, and words for the user. Both empty: nothing is in its way. */
struct Obstacle {
    std::string test;  ///< "permission", "setting", "check", "unit", "package", "port", "switch", "list" or "service"
    std::string reason;

    explicit operator bool() const { return !test.empty(); }
};

/** One service that the relay can carry, on this device. */
struct ServiceState {
    std::string id;
    std::string group;  ///< empty for one that belongs to no group
    bool isOffered = false;
    bool isPermitted = false;
    bool isOn = false;
    ARDV::Relay::ServiceConf onDevice = ARDV::Relay::ServiceConf(nullptr);
    Obstacle obstacle;
};

/** Every service that the relay can carry, each identifier once. Throws as `ReadPermissions`. */
std::vector<ServiceState> SurveyServices(const ARDV::Relay::RelaydConf& conf);

/** Whether the relay can carry a service of this name, or this device has one with a port. */
bool IsKnown(const std::string& id);

/** What keeps a service from being added to the list. Throws as `ReadPermissions`. */
Obstacle ObstacleTo(const std::string& id);

/**
 * What keeps the daemon from letting a service of the list through the relay tunnel: it must be permitted and on now, whatever it
 * was when it was listed, and have a port. Under "support_" and its name a service is reached by the maker's support, while the
 * support channel is on. Throws as `ReadPermissions`.
 */
Obstacle ObstacleInTunnel(const std::string& id, const ARDV::Relay::RelaydConf& conf);

/** The services that the list in a main configuration file names, each once; also those that this device has no port for. */
std::vector<std::string> ListedIds(const Json::Value& settings);

}  // namespace ardv::ctl
