// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the firewall's service list, the router and the web server's settings say where the real ones cannot be made to say
 * it, and a record of what was asked of them. The functions are interposed in the program that links this; each delegates to
 * the real one unless an answer is set.
 */
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include <ardv/firewall_service.h>

namespace ardv::test {

/** What the interposed functions do while one of these lives, which must be at most one at a time. */
class ServiceFaults {
public:
    struct RouterAnswer {
        int result;
        int port;
    };

    ServiceFaults();
    ~ServiceFaults();
    ServiceFaults(const ServiceFaults&) = delete;
    ServiceFaults& operator=(const ServiceFaults&) = delete;

    std::optional<int> enumResult;           ///< result of the enumeration, which has made its list all the same
    const ARDV_FW_SERVICE* found = nullptr;  ///< what every search in the list finds
    std::optional<RouterAnswer> router;      ///< the router's answer
    std::optional<int> webPort;              ///< the operating system's HTTP and HTTPS port
    std::optional<int> httpDefaultConf;      ///< whether the web server has its default HTTP configuration

    /** What was asked, in order: "Enum", "Find NAME", "Free", "RouterPort PORT". */
    std::vector<std::string> calls;

    /** The lists that were given out and not released. */
    std::set<const ARDV_FW_SERVICE_LIST*> held;

    /** Those of the calls that begin so. */
    std::vector<std::string> CallsOf(const std::string& start) const;
};

}  // namespace ardv::test
