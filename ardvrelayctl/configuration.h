// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <relay/config/config.h>

namespace ardv::ctl {

/** Where the main configuration stands unless the user names another file. */
inline constexpr const char kDefaultConfigFile[] = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";

/**
 * Reads the main configuration. The file itself stays as it is, whatever it holds: a file that the user named by
 * mistake must not be moved aside as a damaged configuration would be.
 *
 * @param path a regular file of at most `kMaxJsonFileSize` bytes that holds a JSON object. In a folder that everybody
 *             may write to it must belong to this user or to root, have one name, and be no symbolic link.
 * @throws std::runtime_error, with words for the user that quote nothing of the file, if it is not that, or if its
 *         settings are not valid
 */
ARDV::Relay::RelaydConf LoadConfiguration(const std::string& path);

}  // namespace ardv::ctl
