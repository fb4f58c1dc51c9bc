// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * How long the starter of a daemon waits for it. libdaemon's daemon_retval_wait is interposed in the program that links this, because
 * nobody wants to wait that long for a daemon that says nothing.
 */
#pragma once

namespace ardv::test {

/** While one lives a wait is cut; at most one at a time. In a child it counts too. */
class CutWait {
public:
    /** @param expected the seconds that must be asked for; else the wait fails with EINVAL @param seconds what is waited for instead */
    CutWait(int expected, int seconds);
    ~CutWait();
    CutWait(const CutWait&) = delete;
    CutWait& operator=(const CutWait&) = delete;
};

}  // namespace ardv::test
