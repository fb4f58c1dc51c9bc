// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <functional>
#include <vector>

namespace ardv::test {

/** A process that lives and takes note of its signals, as a daemon would. It ends with this object. */
class SignalledProcess {
public:
    /** @param onSignal what it does, in its own process, when it gets one */
    explicit SignalledProcess(const std::function<void(int)>& onSignal = [](int) {});
    ~SignalledProcess();
    SignalledProcess(const SignalledProcess&) = delete;
    SignalledProcess& operator=(const SignalledProcess&) = delete;

    pid_t Pid() const { return pid_; }

    /** The signals that were sent to it since the last call, lowest first. SIGRTMAX is its own. */
    std::vector<int> Received() const;

private:
    pid_t pid_ = -1;
    int noted_ = -1;
};

}  // namespace ardv::test
