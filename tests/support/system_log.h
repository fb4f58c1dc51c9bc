// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace ardv::test {

/**
 * What `action` writes to the system log, as its datagrams are ("<priority>time program: text"), one behind the other.
 * The action runs in a child with a /dev of its own: the machine's log is no place for tests. Of what it expects,
 * therefore, nothing is counted here; let it write, and expect afterwards.
 */
std::string SystemLogOf(const std::function<void()>& action);

/**
 * The system log of this process and of the children that it starts meanwhile: while one lives, /dev holds this log and /dev/null and
 * nothing else. At most one at a time.
 */
class CapturedSystemLog {
public:
    CapturedSystemLog();
    ~CapturedSystemLog();
    CapturedSystemLog(const CapturedSystemLog&) = delete;
    CapturedSystemLog& operator=(const CapturedSystemLog&) = delete;

    /** What arrived since the last call: "priority source text", without times and line numbers, e.g. "3 config.cpp bad". */
    std::vector<std::string> Messages() const;

private:
    int log_ = -1;
};

}  // namespace ardv::test
