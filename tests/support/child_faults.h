// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Faults on the way to a child: of its password file, of fork(2), and of what it does before exec. The functions are
 * interposed in the program that links this; each is the real one unless a fault is set.
 */
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <optional>

namespace ardv::test {

/** What the interposed functions do while one of these lives, which must be at most one at a time. */
class ChildFaults {
public:
    ChildFaults();
    ~ChildFaults();
    ChildFaults(const ChildFaults&) = delete;
    ChildFaults& operator=(const ChildFaults&) = delete;

    bool forkFails = false;            ///< fork(2) has no resources
    bool chmodFails = false;           ///< fchmod(2) is not permitted
    bool closeFails = false;           ///< close(2) reports an I/O error for a file of /tmp, and closes it
    bool closeRangeIsUnknown = false;  ///< as with an old kernel
    std::optional<std::size_t>
        writeAtMost;  ///< write(2) takes no more than this at a time, and every other one is interrupted
    std::optional<int> writesUntilFull;  ///< after so many calls write(2) finds the disk full

    std::function<void(pid_t)> onForked;  ///< called with fork's result, on both sides
    std::function<void(int)> onChmod;     ///< called with the descriptor of fchmod(2)
};

}  // namespace ardv::test
