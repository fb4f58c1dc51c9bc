// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace ardv::ctl {

/** Something wrong in a configuration file. */
struct Finding {
    std::string file;
    std::string key;  ///< dotted, with "[2]" for the third element of a list; empty for the file as a whole
    bool isError = true;
    std::string reason;
    bool isForbidden = false;  ///< this user may not read the file: nothing is known of its content
};

/**
 * Checks the main configuration file; nothing is changed. A file that isn't there is an error if it is named, else a
 * warning. Errors stand before warnings, and at most 200 of either are listed; a last one says that there are more.
 * There is an error wherever the library finds the configuration not valid.
 */
std::vector<Finding> CheckConfiguration(const std::string& path, bool isNamed);

/** Checks the device's environment and permission files, where they exist. */
std::vector<Finding> CheckNeighbours();

/**
 * What keeps a configuration of these settings from being valid, in words. A setting that is merely wrong, and ignored or
 * taken as it is, is nothing of the kind. Empty if nothing does.
 */
std::string ValidityFault(const Json::Value& settings);

}  // namespace ardv::ctl
