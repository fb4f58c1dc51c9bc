// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace ardv::ctl {

/**
 * Reads a secret: the first line of a file, without its line end, LF or CR LF. Secrets come by files because every user of the
 * machine sees a program's arguments.
 *
 * @param path the file; "-" is standard input, of which nothing behind the line is taken, so that another secret may
 *             follow. A regular file must belong to this user or to root, and neither group nor others may read or write
 *             it; a pipe or a terminal is taken as it is.
 * @throws std::runtime_error, with words for the user, if it cannot be read, is not kept secret, is empty, has a CR or
 *         NUL in it, or is longer than 4,096 bytes
 */
std::string ReadSecret(const std::string& path);

/** Overwrites a secret that is no longer needed and makes it empty. */
void Wipe(std::string& secret);

}  // namespace ardv::ctl
