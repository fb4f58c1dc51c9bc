// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <json/value.h>

#include <relay/config/support_service.h>

#include "json_file.h"

namespace ardv::ctl {

/** The owner's choices. The library reads them from this place, wherever the main configuration stands. */
JsonFile PermissionFile();

/**
 * The list in the permission file; an empty one if there is no such file.
 *
 * @throws CommandError, with the file as it was, if it cannot be read or is no JSON array
 */
Json::Value ReadPermissions();

/**
 * Brings the permission file up to date with the device, and returns its list. The denial of a group that is not on the
 * device now is lost by this; the user is told. Its folder must be there, and an edit lock
 * on it be held. Throws as `ReadPermissions`, and if there is more text behind the list.
 */
Json::Value UpdatePermissions();

/** The groups' names, in the order of the library's table. */
std::vector<std::string> GroupNames();

/** The name of a service's group; empty for a service that belongs to none. */
std::string GroupOf(const ARDV::Relay::SupportService& service);

/** The services of the library's table that belong to a group, each once. */
std::vector<std::string> ServicesOf(const std::string& group);

}  // namespace ardv::ctl
