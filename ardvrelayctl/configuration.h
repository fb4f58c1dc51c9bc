// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <json/value.h>

#include <relay/config/config.h>

#include "json_file.h"

namespace ardv::ctl {

/** Where the main configuration stands unless the user names another file. */
inline constexpr const char kDefaultConfigFile[] = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";

/** The main configuration as a file. */
inline JsonFile ConfigurationFile(const std::string& path) {
    return {"the configuration", path};
}

/**
 * What becomes of the services of a configuration: reading them asks the device for each, and the router for its ports.
 */
enum class Services { kLeaveOut, kRead };

/**
 * Reads the main configuration. The file itself stays as it is, whatever it holds.
 *
 * @param path a regular file as `ReadText` wants it that holds a JSON object
 * @throws CommandError, with words for the user that quote nothing of the file, if it is not that, or if its settings
 *         are not valid
 */
ARDV::Relay::RelaydConf LoadConfiguration(const std::string& path);

/** The object in the main configuration file; an empty one if there is no such file. Throws as `LoadConfiguration`, but
 * doesn't look at the settings. With comments kept it is to be written again: text behind the object is refused then. */
Json::Value ReadSettings(const std::string& path, Comments comments = Comments::kDrop);

/**
 * The configuration that settings make: the defaults with the settings over them. `isValid`: what it says of itself.
 */
ARDV::Relay::RelaydConf Configured(const Json::Value& settings, Services services, bool& isValid);

/** As `LoadConfiguration`, with the defaults where there is no file. */
ARDV::Relay::RelaydConf LoadOrDefault(const std::string& path, Services services);

}  // namespace ardv::ctl
