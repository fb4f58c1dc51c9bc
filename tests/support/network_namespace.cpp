// SPDX-License-Identifier: Apache-2.0
#include "support/network_namespace.h"

#include <fcntl.h>
#include <sched.h>

#include <stdexcept>

namespace ardv::test {

InNamespace::InNamespace(const std::string& name) : before_(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)) {
    Enter(name);
}

InNamespace::~InNamespace() {
    ::setns(before_.Number(), CLONE_NEWNET);
}

void InNamespace::Enter(const std::string& name) {
    const Handle there(::open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC));
    if (there.Number() < 0 || ::setns(there.Number(), CLONE_NEWNET) != 0) {
        throw std::runtime_error("cannot enter the network namespace " + name);
    }
}

}  // namespace ardv::test
