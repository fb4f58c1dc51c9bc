// SPDX-License-Identifier: Apache-2.0
#include <ardv/port_mapping.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/deadline.h"
#include "platform/linux/error.h"
#include "platform/linux/gateway_http.h"
#include "platform/linux/router_link.h"
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

/// For the first answer of a router that was found before. If it is gone, there is time left to find another; if it isn't,
/// it may be as slow as it was when it was found.
constexpr milliseconds kKnownRouterLimit{300};

constexpr seconds kMappingsLife{ARDV_PORT_MAPPING_KEPT_SECONDS};
constexpr seconds kAbsenceLife{ARDV_PORT_MAPPING_ABSENCE_KEPT_SECONDS};

/// How long the way to the router is taken for granted: the services of one reading of the configuration ask in a row, and
/// the kernel's answer costs more than all else that an answer from memory does.
constexpr seconds kLinkLife{ARDV_PORT_MAPPING_ROUTE_KEPT_SECONDS};

/// What is known of the router at the default route.
class Router {
public:
    /// The router port that leads to `port` of this device; 0 when none does.
    Result<int> Find(int port);

private:
    void FindWay();
    void Meet(const RouterLink& link);
    void Refresh();
    Result<MappingList> Ask();
    Result<MappingList> SearchAndAsk(const Deadline& deadline);
    Result<int> FindInList(int port) const;

    std::mutex mutex_;
    Result<RouterLink> way_ = Error{};
    Clock::time_point wayUntil_ = Clock::time_point::min();
    RouterLink link_;
    std::vector<ConnectionService> connections_;
    Result<MappingList> list_ = Error{};
    Clock::time_point goodUntil_ = Clock::time_point::min();
};

Result<int> Router::Find(int port) {
    const std::lock_guard lock(mutex_);
    FindWay();
    if (!way_) {
        return way_.Reason();
    }
    Meet(*way_);
    Refresh();
    return FindInList(port);
}

void Router::FindWay() {
    const auto now = Clock::now();
    if (now >= wayUntil_) {
        way_ = ReadRouterLink();
        wayUntil_ = now + kLinkLife;
    }
}

/// Another way out leads to another router: forgets what was known.
void Router::Meet(const RouterLink& link) {
    if (link_ == link) {
        return;
    }
    link_ = link;
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
    const Deadline deadline(kQuestionLimit);
    if (!connections_.empty()) {
        GatewayHttp http(deadline.Within(kKnownRouterLimit));
        Result<MappingList> list = ReadMappings(http, connections_, deadline);
        if (list) {
            return list;
        }
        connections_.clear();
    }
    return SearchAndAsk(deadline);
}

Result<MappingList> Router::SearchAndAsk(const Deadline& deadline) {
    const Result<std::string> url = FindGatewayDescription(link_, deadline.Within(kSearchLimit));
    if (!url) {
        return url.Reason();
    }
    GatewayHttp http(deadline);
    Result<std::vector<ConnectionService>> connections = ReadConnections(http, *url, link_.gateway, deadline);
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
        return mapping.port == port && mapping.client.s_addr == link_.address.s_addr;
    });
    if (found != mappings.end()) {
        return found->routerPort;
    }
    return list_->cut ? Result<int>(*list_->cut) : 0;
}

/// Never destroyed: another library may still ask while the process ends.
Router& TheRouter() {
    static auto* const router = new Router;
    return *router;
}

int RouterPort(int port, int& routerPort) {
    const Result<int> found = TheRouter().Find(port);
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
