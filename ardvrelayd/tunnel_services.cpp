// SPDX-License-Identifier: Apache-2.0
#include "tunnel_services.h"

#include <string_view>

#include <relay/config/support_service.h>
#include <relay/service/service_permission.h>

namespace ardv::daemon {

using namespace ARDV::Relay;

namespace {

constexpr std::string_view kSupport = "support_";
constexpr int kMaxPort = 65535;

// A service may stand in the table more than once: it is on when one of its records is.
bool IsOn(std::string_view name, const ServicePermission& permission, std::uint32_t mask) {
    for (const auto* record = grgszSupportService; record->id; ++record) {
        if (name == record->id && permission.IsServiceEnabled(record, mask)) {
            return true;
        }
    }
    return false;
}

// The support reaches a service that is on, whatever the owner permits to himself: he has switched its channel on.
bool IsPermitted(const std::string& id, const RelaydConf& configuration, const ServicePermission& permission) {
    const bool isSupport = id.rfind(kSupport, 0) == 0;
    return isSupport ? configuration.IsSupportChannelEnabled() &&
                           IsOn(std::string_view(id).substr(kSupport.size()), permission, kAllServiceGroups)
                     : configuration.GetEnableConf() && IsOn(id, permission, 0);
}

}  // namespace

std::vector<OpenService> PermittedServices(const RelaydConf& configuration) {
    const ServicePermission permission(false);
    std::vector<OpenService> services;
    for (const auto& service : configuration.GetServices()) {
        const auto port = service.GetPort();
        if (port > 0 && port <= kMaxPort && IsPermitted(service.GetId(), configuration, permission)) {
            services.push_back({service.GetId(), static_cast<std::uint16_t>(port)});
        }
    }
    return services;
}

}  // namespace ardv::daemon
