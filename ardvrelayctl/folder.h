// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace ardv::ctl {

/**
 * Makes a folder, and those above it, where there are none: each with mode 0755 whatever the umask. What is there is
 * left as it is.
 *
 * @return false, with errno, if one cannot be made
 */
bool MakeFolder(const std::string& folder);

}  // namespace ardv::ctl
