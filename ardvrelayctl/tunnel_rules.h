// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "packet_filter.h"
#include "status_snapshot.h"

namespace ardv::ctl {

/** One service, as it should be reached through the tunnel and as the daemon says that it is. */
struct ServiceRule {
    enum class Kind { kOpen, kClosed, kDiffers };

    std::string id;
    int port = -1;  ///< that is open, or would be; -1 where there is none
    Kind kind = Kind::kClosed;
    std::string reason;  ///< why it isn't open, or what differs
};

/** One address family's packet filter. */
struct FilterReport {
    const char* family;
    const char* program;
    std::string unchecked;   ///< why it was not looked at; empty where it was
    bool hasFailed = false;  ///< whether that is a fault of the program's
    GuardFindings findings;
};

/** What the tunnel lets through, from the configuration, from the daemon and from the packet filter. */
struct TunnelRules {
    StatusSnapshot snapshot;
    std::vector<ServiceRule> services;
    std::vector<FilterReport> filters;
    bool isGuardNeeded = false;

    bool HasProblem() const;
};

/** Looks at everything; again, for half a second at most, where it finds a problem: the daemon may be changing the rules. Throws as
 * `LoadOrDefault` and `ReadPermissions`. */
TunnelRules ReadTunnelRules(const Session& session);

}  // namespace ardv::ctl
