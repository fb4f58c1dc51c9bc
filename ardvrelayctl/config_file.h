// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include <json/value.h>

namespace ardv::ctl {

/**
 * Changes something in the main configuration file and leaves everything else in it as it is, comments and keys that
 * the system does not know included. A missing file is made, and for the default path its folder too. No other run of
 * the tool changes the file meanwhile.
 *
 * @param change gets the object in the file; false: there is nothing to change
 * @return what `change` returned
 * @throws CommandError, with the file as it was, if it is damaged, if the outcome would not be a valid configuration,
 *         or if it cannot be written
 */
bool EditSettings(const std::string& path, const std::function<bool(Json::Value&)>& change);

/** Makes the default configuration's folder if there is none. Failures show in what is done next. */
void MakeConfigFolder(const std::string& path);

}  // namespace ardv::ctl
