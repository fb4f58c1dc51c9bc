// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

namespace ardv::test {

/**
 * What `action` writes to the system log, as its datagrams are ("<priority>time program: text"), one behind the other.
 * The action runs in a child with a /dev of its own: the machine's log is no place for tests. Of what it expects,
 * therefore, nothing is counted here; let it write, and expect afterwards.
 */
std::string SystemLogOf(const std::function<void()>& action);

}  // namespace ardv::test
