// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace ardv::ctl {

/**
 * Reads a secret: the first line of a file, without its line end. Secrets come by files because every user of the
 * machine sees a program's arguments.
 *
 * @param path the file; "-" is standard input
 * @throws std::runtime_error, with words for the user, if it cannot be read, is empty, or is longer than 4,096 bytes
 */
std::string ReadSecret(const std::string& path);

}  // namespace ardv::ctl
