// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the device's network says where a real one cannot be made to say it, and a record of what was asked. The functions are
 * interposed in the program that links this; each delegates to the real one unless an answer is set.
 */
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <ardv/dynamic_dns.h>
#include <ardv/network.h>

namespace ardv::test {

/** What the interposed functions do while one of these lives, which must be at most one at a time. */
class NetworkFaults {
public:
    /** A result and the texts that are left in the buffers, also by a call that fails. */
    struct Answer {
        int result;
        std::string first;
        std::string second = {};
    };

    NetworkFaults();
    ~NetworkFaults();
    NetworkFaults(const NetworkFaults&) = delete;
    NetworkFaults& operator=(const NetworkFaults&) = delete;

    std::optional<std::vector<ALIB_NETIF>> interfaces;  ///< the table of interfaces
    std::optional<int> interfaceResult;                 ///< result of asking for it, with the table filled all the same
    bool acceptsAnyMask = false;                        ///< every address goes with every mask
    std::optional<int> pppoeStatus;                     ///< whether PPPoE is connected
    std::optional<Answer> pppoeAddress;                 ///< its address and mask
    std::optional<Answer> pppoeInterface;               ///< its interface's name
    std::optional<Answer> gateway;                      ///< the default gateway
    std::optional<Answer> dynamicDns;                   ///< a provider's host name

    /** The IPv6 addresses of an interface: the texts, or nothing for a failure. */
    std::function<std::optional<std::vector<std::string>>(const std::string&)> ipv6;

    /** What was asked, in order: a function's name, what it was asked for, and the sizes of its buffers. */
    std::vector<std::string> calls;
};

/** An entry of the table of interfaces. */
ALIB_NETIF MakeInterface(const std::string& name, int type, const std::string& ip, const std::string& mask);

}  // namespace ardv::test
