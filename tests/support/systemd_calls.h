// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The system services as a test wants them. A program that links this asks them of the test instead of the service manager:
 * no test may start or stop units of the machine it runs on.
 */
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace ardv::test {

/**
 * What the system services answer while one of these lives, which must be at most one at a time. Without one every call
 * fails.
 */
class SystemdCalls {
public:
    SystemdCalls();
    ~SystemdCalls();
    SystemdCalls(const SystemdCalls&) = delete;
    SystemdCalls& operator=(const SystemdCalls&) = delete;

    int switchResult = 0;  ///< of enabling, disabling, starting, stopping and reloading any unit
    int unitState = 0;     ///< of any unit
    int inetdState = 0;    ///< of any service of inetd

    /** Called with each call, before it is answered. */
    std::function<void(const std::string&)> onCall;

    /** What was asked, in order: "Enable UNIT", "Disable UNIT", "Start UNIT", "Stop UNIT", "Reload UNIT", "State UNIT",
     * "Inetd SERVICE". */
    std::vector<std::string> calls;
};

}  // namespace ardv::test
