// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace ardv::daemon {

/**
 * Says on standard output whether a configuration file can be used, or on standard error why not. The file stays where it is, also where
 * it is damaged. One that is not there is no fault: the daemon then works with its defaults.
 */
bool CheckConfigFile(const std::string& path);

}  // namespace ardv::daemon
