// SPDX-License-Identifier: Apache-2.0
#include <ardv/port_mapping.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/deadline.h"
#include "platform/linux/router_link.h"
#include "platform/linux/error.h"
#include "platform/linux/gateway_http.h"
#include "platform/linux/ssdp_search.h"
#include "platform/linux/upnp_gateway.h"

namespace ARDV::Platform {

namespace {

using Clock = Deadline::Clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kMaxPort = 65535;

/// All that one question to the router may cost. A configuration asks for each of its services while somebody waits.
constexpr milliseconds kQuestionLimit{ARDV_PORT_MAPPING_WAIT_MILLISECONDS};

/// For the search within it. A router on the same wire answers within a tenth of it.
constexpr milliseconds kSearchLimit{400};

/// For a router that was found before. If it is gone, there is time left to find another.
constexpr milliseconds kKnownRouterLimit{300};

constexpr seconds kMappingsLife{ARDV_PORT_MAPPING_KEPT_SECONDS};
constexpr seconds kAbsenceLife{ARDV_PORT_MAPPING_ABSENCE_KEPT_SECONDS};

/// What is known of the router behind the default route.
class Router {
public:
    /// The router port that leads to `port` of this device; 0 when none does.
    Result<int> Find(int port);

private:
    void Meet(const RouterLink& route);
    void Refresh();
    Result<MappingList> Ask();
    Result<MappingList> SearchAndAsk(GatewayHttp& http, const Deadline& deadline);
    Result<int> FindInList(int port) const;

    std::mutex mutex_;
    RouterLink route_;
    std::vector<ConnectionService> connections_;
    Result<MappingList> list_ = Error{};
    Clock::time_point goodUntil_ = Clock::time_point::min();
};

Result<int> Router::Find(int port) {
    const Result<RouterLink> route = ReadRouterLink();
    if (!route) {
        return route.Reason();
    }
    const std::lock_guard lock(mutex_);
    Meet(*route);
    Refresh();
    return FindInList(port);
}

/// Another way out leads to another router: forgets what was known.
void Router::Meet(const RouterLink& route) {
    if (route_ == route) {
        return;
    }
    route_ = route;
    connections_.clear();
    goodUntil_ = Clock::time_point::min();
}

void Router::Refresh() {
    if (Clock::now() < goodUntil_) {
        return;
    }
    list_ = Ask();
    const bool isOwnFault = !list_ && list_.Reason().code == ARDV_ERR_NO_MEMORY;
    const seconds life = list_ ? kMappingsLife : kAbsenceLife;
    goodUntil_ = Clock::now() + (isOwnFault ? seconds::zero() : life);
}

Result<MappingList> Router::Ask() {
    GatewayHttp http;
    const Deadline deadline(kQuestionLimit);
    if (!connections_.empty()) {
        Result<MappingList> list = ReadMappings(http, connections_, deadline.Within(kKnownRouterLimit));
        if (list) {
            return list;
        }
        connections_.clear();
    }
    return SearchAndAsk(http, deadline);
}

Result<MappingList> Router::SearchAndAsk(GatewayHttp& http, const Deadline& deadline) {
    const Result<std::string> url = FindGatewayDescription(route_, deadline.Within(kSearchLimit));
    if (!url) {
        return url.Reason();
    }
    Result<std::vector<ConnectionService>> connections = ReadConnections(http, *url, route_.gateway, deadline);
    if (!connections) {
        return connections.Reason();
    }
    Result<MappingList> list = ReadMappings(http, *connections, deadline);
    if (list) {
        connections_ = std::move(*connections);
    }
    return list;
}

Result<int> Router::FindInList(int port) const {
    if (!list_) {
        return list_.Reason();
    }
    const auto& mappings = list_->mappings;
    const auto found = std::find_if(mappings.begin(), mappings.end(), [&](const PortMapping& mapping) {
        return mapping.port == port && mapping.client.s_addr == route_.address.s_addr;
    });
    if (found != mappings.end()) {
        return found->routerPort;
    }
    return list_->cut ? Result<int>(*list_->cut) : 0;
}

int RouterPort(int port, int& routerPort) {
    static Router router;
    const Result<int> found = router.Find(port);
    if (!found) {
        return Fail(found.Reason());
    }
    routerPort = *found;
    return 0;
}

}  // namespace

}  // namespace ARDV::Platform

using namespace ARDV::Platform;

int ALibArdvPortMapGetRouterPort(int port, int* routerPort) {
    if (routerPort != nullptr) {
        *routerPort = 0;
    }
    if (routerPort == nullptr || port < 1 || port > kMaxPort) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([=] { return RouterPort(port, *routerPort); });
}
