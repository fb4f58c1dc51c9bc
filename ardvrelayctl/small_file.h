// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace ardv::ctl {

/** The beginning of a regular file, `maxBytes` of it at most; no value if it cannot be read. */
std::optional<std::string> ReadSmallFile(const std::string& path, std::size_t maxBytes);

/**
 * The last lines of a regular file, whole ones, of the last `maxBytes` bytes; no value if it cannot be read. In a folder that
 * everybody may write to no symbolic link is followed.
 */
std::optional<std::string> ReadTail(const std::string& path, std::size_t maxLines, std::size_t maxBytes);

}  // namespace ardv::ctl
