// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Faults that neither a real platform nor a real kernel can be made to show, and a record of what was asked of them.
 * The functions are interposed in the program that links this; each delegates to the real one unless a fault is set.
 */
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ardv::test {

/** What the interposed functions do while one of these lives, which must be at most one at a time. */
class PlatformFaults {
public:
    PlatformFaults();
    ~PlatformFaults();
    PlatformFaults(const PlatformFaults&) = delete;
    PlatformFaults& operator=(const PlatformFaults&) = delete;

    bool syncFails = false;                  ///< fsync(2) reports an I/O error
    bool clockTextFails = false;             ///< ctime_r(3) renders nothing
    bool readFails = false;                  ///< read(2) reports an I/O error
    bool isInterrupted = false;              ///< every other read(2) and write(2) is interrupted by a signal
    std::optional<std::size_t> writeAtMost;  ///< write(2) takes no more than this at a time

    /** Called with the file's path before each read(2). What it throws comes out of read(2). */
    std::function<void(const std::string&)> onRead;

    /** Called with a platform function's name: true makes that function fail, after it has written to its buffers. */
    std::function<bool(const std::string&)> platformFails;

    /** What the functions for a key's value answer; the one that reads the value then leaves text in its buffer. */
    std::optional<int> keyValueResult;

    /** The text that is left in a buffer. */
    std::string leftText = "rest";

    /** What was asked, in order: "fsync PATH", "rename FROM TO", or a platform function with sizes and flags. */
    std::vector<std::string> calls;

    /** Files that were read, written or flushed by a descriptor that a program started meanwhile would inherit. */
    std::set<std::string> inheritable;

    /** Those of the calls that begin so. */
    std::vector<std::string> CallsOf(const std::string& start) const;
};

}  // namespace ardv::test
