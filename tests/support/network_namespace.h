// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "support/handle.h"

namespace ardv::test {

/**
 * While one lives its thread is in a named network namespace (of "ip netns"): the sockets that it opens and the programs that it
 * starts belong there. One may be made within another's life.
 */
class InNamespace {
public:
    /** @throws std::runtime_error when there is none of that name */
    explicit InNamespace(const std::string& name);
    ~InNamespace();
    InNamespace(const InNamespace&) = delete;
    InNamespace& operator=(const InNamespace&) = delete;

    /** Takes the calling thread, and what it starts from now on, there for good. */
    static void Enter(const std::string& name);

private:
    Handle before_;
};

}  // namespace ardv::test
