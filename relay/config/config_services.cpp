// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config.h>

#include <algorithm>
#include <utility>

#include <relay/daemon/log.h>
#include <relay/service/service_permission.h>

RELAY_LOG_SOURCE("config.cpp");

namespace ARDV::Relay {

namespace {

constexpr std::size_t kMaxIdLength = 1023;

std::string SupportIdOf(const SupportService& service) {
    return (std::string("support_") + service.id).substr(0, kMaxIdLength);
}

bool IsPermitted(const ServicePermission& permission, const std::string& id) {
    for (const auto* row = grgszSupportService; row->id; ++row) {
        if (id == row->id && !permission.IsServiceEnabled(row, 0)) {
            return false;
        }
    }
    return true;
}

}  // namespace

void RelaydConf::AppendFromDevice(const std::string& id) {
    ServiceConf service(id.c_str());
    if (!service.IsValid()) {
        RELAY_LOG(LOG_DEBUG, "service config is invalid, %s", id.c_str());
        return;
    }
    services_.push_back(std::move(service));
}

void RelaydConf::GenServiceConf() {
    const ServicePermission permission(false);
    services_.clear();
    for (const auto* row = grgszSupportService; row->id; ++row) {
        if (tethraEnabled_ && permission.IsServiceEnabled(row, 0)) {
            AppendFromDevice(row->id);
        }
        if (supportChannel_.GetEnabled() && permission.IsServiceEnabled(row, kAllServiceGroups)) {
            AppendFromDevice(SupportIdOf(*row));
        }
    }
}

bool RelaydConf::AddServiceById(const std::string& id) {
    ServiceConf service(id.c_str());
    const ServicePermission permission(false);
    if (!service.IsValid()) {
        RELAY_LOG(LOG_ERR, "invalid service config");
        return false;
    }
    // The name in the list is what is judged: a caller's text may go on behind a NUL byte.
    if (GetServiceById(service.GetId())) {
        return true;
    }
    if (!IsPermitted(permission, service.GetId())) {
        return false;
    }
    services_.push_back(std::move(service));
    return true;
}

bool RelaydConf::RemoveServiceById(const std::string& id) {
    // Read as by the other operations, and not asked: a service may be removed whatever its permission.
    [[maybe_unused]] const ServicePermission permission(false);
    const auto found =
        std::find_if(services_.begin(), services_.end(), [&](const ServiceConf& s) { return s.GetId() == id; });
    if (found == services_.end()) {
        return false;
    }
    services_.erase(found);
    return true;
}

bool RelaydConf::CheckServiceRunKey(const SupportService* /*service*/) {
    return false;
}

}  // namespace ARDV::Relay
