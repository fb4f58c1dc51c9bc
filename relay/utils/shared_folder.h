// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>

namespace ARDV::Relay::Utils {

/** The folder that holds `path`: "." for a bare name. */
std::string FolderOf(const std::string& path);

/**
 * O_NOFOLLOW where everybody may write to the folder that holds `path`, else 0. In such a folder (/tmp) a symbolic link
 * may be somebody's trap for a privileged process; elsewhere it is the owner's wish.
 */
int NoFollowIfShared(const std::string& path);

/**
 * Whether an open file may be taken for what it seems to be. In a folder that everybody may write to it must be a regular file with one name
 * that belongs to this user or to root: anything else may be planted there, to be read, to be overwritten, or to have its mode changed.
 */
bool IsTrustworthy(int fd, const std::string& path);

/** chmod(2) that does not follow a symbolic link in a folder that everybody may write to. */
int ChangeMode(const std::string& path, mode_t mode);

}  // namespace ARDV::Relay::Utils
