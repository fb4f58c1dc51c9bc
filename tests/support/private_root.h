// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace ardv::test {

/**
 * Moves this process, and all that it starts, onto a copy-on-write copy of the machine's root file system with an empty
 * /tmp and /run, and into a network namespace that has nothing but loopback. Fixed absolute paths can then be written;
 * everything is gone with the process. Works as root, and as any user where the kernel grants user namespaces (the user
 * is then root within).
 *
 * @param kept folders that are passed through: what is written there stays
 * @param why set to the step that failed
 * @return false if the machine grants no such thing; the process is then of no use for tests that write
 */
bool EnterPrivateRoot(const std::vector<std::string>& kept, std::string& why);

}  // namespace ardv::test
