// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ardv/firewall_service.h>

#include "platform/linux/error.h"

namespace ARDV::Platform {

/// One service as a file has it.
struct FirewallService {
    std::optional<std::string> service;
    std::optional<std::string> section;
    std::optional<std::string> title;
    std::optional<std::string> displayName;
    std::optional<std::vector<std::string>> ports;
};

/// Reads the services of one JSON text; nothing when it is no array.
std::optional<std::vector<FirewallService>> ParseFirewallServices(std::string_view text);

/// Services as C callers see them.
class FirewallServiceList {
public:
    explicit FirewallServiceList(std::vector<FirewallService> services);
    FirewallServiceList(const FirewallServiceList&) = delete;
    FirewallServiceList& operator=(const FirewallServiceList&) = delete;

    std::size_t Size() const { return views_.size(); }

    /// The first service of this name; null without one.
    const ARDV_FW_SERVICE* Find(std::string_view name) const;

private:
    std::vector<FirewallService> services_;
    std::vector<std::vector<const char*>> ports_;
    std::vector<ARDV_FW_SERVICE> views_;
};

/// The list of all files, parsed once as long as they are provably the same. Empty without files.
Result<std::shared_ptr<const FirewallServiceList>> ReadFirewallServices();

}  // namespace ARDV::Platform
