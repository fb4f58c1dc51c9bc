// SPDX-License-Identifier: Apache-2.0
#include "service_state.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string_view>

#include <ardv/key_value_file.h>
#include <ardv/system_service.h>

#include <relay/config/support_service.h>
#include <relay/service/service_permission.h>

#include "json_member.h"
#include "permission_file.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

constexpr const char kSwitchedOff[] = "the service is switched off: 'ardvrelayctl config set tethra.enabled true'";

/** The owner's choices. */
struct Choices {
    std::uint32_t mask;    // of the groups that are permitted
    std::uint32_t denied;  // of those that stay denied when the list is made again
};

Choices ReadChoices() {
    const Json::Value list = ReadPermissions();
    Choices choices = {ServicePermission::JsonToMask(list), 0};
    for (const auto& group : GroupNames()) {
        choices.denied |= ServicePermission::IsChosen(list, group) ? 0 : ServicePermission::GetMaskVal(group);
    }
    return choices;
}

bool IsPermitted(const SupportService& service, const Choices& choices) {
    return (static_cast<std::uint32_t>(service.group) & choices.mask) != 0;
}

std::string DenialOf(const SupportService& service, const Choices& choices) {
    const bool isDenied = (static_cast<std::uint32_t>(service.group) & choices.denied) != 0;
    if (!isDenied || IsPermitted(service, choices)) {
        return {};
    }
    const std::string group = GroupOf(service);
    return group.empty()
               ? "no group of services is permitted, and so none of those that belong to no group"
               : "the group " + group + " is denied: 'ardvrelayctl permission allow " + group + "' permits it";
}

// Comes last: as long as nothing of a group is on, there is nothing to permit.
std::string MissingDecision(const SupportService& service, const Choices& choices) {
    return IsPermitted(service, choices) ? "" : "it is not permitted yet: 'ardvrelayctl service generate' does that";
}

std::string SettingFault(const SupportService& service, const Choices& /*choices*/) {
    const bool isOn = !service.conf_file || ALIBCFileCheckKeyValue(service.conf_file, service.conf_key,
                                                                   service.conf_value, service.is_default) != 0;
    return isOn ? ""
                : std::string("it is switched off: ") + service.conf_key + " is not \"" + service.conf_value +
                      "\" in " + service.conf_file;
}

std::string CheckFault(const SupportService& service, const Choices& /*choices*/) {
    const std::string_view expected = service.check && service.conf_value ? service.conf_value : "";
    const bool isWithheld = (expected == "yes" && !service.check()) || (expected == "no" && service.check());
    return isWithheld ? "the web server redirects HTTP to HTTPS: offer the HTTPS service instead" : "";
}

std::string UnitFault(const SupportService& service, const Choices& /*choices*/) {
    const std::string unit = service.unit ? service.unit : "";
    if (!unit.empty() && ARDVSystemdActiveStatusGet(service.unit) != 1) {
        return "its unit " + unit + " is not active";
    }
    return unit == "inetd.service" && ARDVInetdServiceIsEnable("telnetd") != 1 ? "telnet is not switched on in inetd"
                                                                               : "";
}

std::string PackageFault(const SupportService& service, const Choices& /*choices*/) {
    const std::string package = service.package ? service.package : "";
    const bool isEnabled = package.empty() || access(("/var/packages/" + package + "/enabled").c_str(), F_OK) == 0;
    return isEnabled ? "" : "the package " + package + " is not installed or not enabled";
}

struct Test {
    const char* name;
    std::string (*fault)(const SupportService&, const Choices&);
};

// In the order in which the library makes them.
constexpr Test kTests[] = {{"permission", DenialOf}, {"setting", SettingFault}, {"check", CheckFault},
                           {"unit", UnitFault},      {"package", PackageFault}, {"permission", MissingDecision}};

/** The library decides; the tests explain. */
Obstacle ObstacleOf(const SupportService& service, const ServicePermission& permission, const Choices& choices) {
    if (permission.IsServiceEnabled(&service, choices.mask)) {
        return {};
    }
    for (const auto& [name, fault] : kTests) {
        if (const auto reason = fault(service, choices); !reason.empty()) {
            return {name, reason};
        }
    }
    return {"check", "it is off (--verbose tells more)"};
}

constexpr std::string_view kSupportPrefix = "support_";
constexpr int kLastPort = 65535;

Obstacle SwitchObstacle(bool isSupport, const RelaydConf& conf) {
    if (isSupport) {
        return conf.IsSupportChannelEnabled()
                   ? Obstacle{}
                   : Obstacle{"switch",
                              "the support channel is switched off: 'ardvrelayctl config set support_channel.enabled "
                              "true'"};
    }
    return conf.GetEnableConf() ? Obstacle{} : Obstacle{"switch", kSwitchedOff};
}

Obstacle PortObstacle(const ServiceConf& onDevice) {
    if (onDevice.IsValid()) {
        return {};
    }
    const bool isHttp2 = onDevice.GetId().ends_with("_http2");
    return {"port", std::string("this device has no port for it") +
                        (isHttp2 ? ", or HTTP/2 is off in its web server's settings" : "")};
}

/** What is left to do for a service that this device can offer. */
Obstacle MissingStep(const ServiceState& state, const RelaydConf& conf, bool isAddable) {
    if (!conf.GetEnableConf()) {
        return {"switch", kSwitchedOff};
    }
    if (state.isOffered) {
        return {};
    }
    return {"list", "not in the list: 'ardvrelayctl service " + (isAddable ? "add " + state.id : "generate") + "'"};
}

std::vector<const SupportService*> RowsOf(const std::string& id) {
    std::vector<const SupportService*> rows;
    for (const auto* row = grgszSupportService; row->id; ++row) {
        if (id == row->id) {
            rows.push_back(row);
        }
    }
    return rows;
}

ServiceState StateOf(const std::string& id, const RelaydConf& conf, const Choices& choices) {
    const ServicePermission permission(false);
    ServiceState state;
    state.id = id;
    state.onDevice = ServiceConf(id.c_str());
    state.isOffered = conf.GetServiceById(id) != nullptr;
    std::vector<Obstacle> obstacles;
    for (const auto* row : RowsOf(id)) {
        state.group = GroupOf(*row);
        state.isPermitted = state.isPermitted || IsPermitted(*row, choices);
        state.isOn = state.isOn || permission.IsServiceEnabled(row, kAllServiceGroups);
        obstacles.push_back(ObstacleOf(*row, permission, choices));
    }
    const auto isThere = [](const Obstacle& obstacle) { return static_cast<bool>(obstacle); };
    // One of the packages that provide a service is enough, though not to add it by itself.
    if (std::all_of(obstacles.begin(), obstacles.end(), isThere)) {
        state.obstacle = obstacles.front();
    }
    if (!state.obstacle) {
        state.obstacle = PortObstacle(state.onDevice);
    }
    if (!state.obstacle) {
        state.obstacle = MissingStep(state, conf, std::none_of(obstacles.begin(), obstacles.end(), isThere));
    }
    return state;
}

}  // namespace

std::vector<ServiceState> SurveyServices(const RelaydConf& conf) {
    const Choices choices = ReadChoices();
    std::vector<ServiceState> states;
    for (const auto* row = grgszSupportService; row->id; ++row) {
        if (std::none_of(states.begin(), states.end(), [row](const ServiceState& s) { return s.id == row->id; })) {
            states.push_back(StateOf(row->id, conf, choices));
        }
    }
    return states;
}

bool IsKnown(const std::string& id) {
    return !RowsOf(id).empty() || ServiceConf(id.c_str()).IsValid();
}

Obstacle ObstacleTo(const std::string& id) {
    const Choices choices = ReadChoices();
    const ServicePermission permission(false);
    Obstacle first;
    bool isOffered = false;
    for (const auto* row : RowsOf(id)) {
        const auto obstacle = ObstacleOf(*row, permission, choices);
        isOffered = isOffered || !obstacle;
        first = first ? first : obstacle;
    }
    if (first && isOffered) {
        first.reason += "; 'ardvrelayctl service generate' is content with one of the packages that provide it";
    }
    return first ? first : PortObstacle(ServiceConf(id.c_str()));
}

Obstacle ObstacleInTunnel(const std::string& id, const RelaydConf& conf) {
    const bool isSupport = id.starts_with(kSupportPrefix);
    if (auto off = SwitchObstacle(isSupport, conf)) {
        return off;
    }
    const auto rows = RowsOf(isSupport ? id.substr(kSupportPrefix.size()) : id);
    if (rows.empty()) {
        return {"service", "it is none of the services that the relay can carry"};
    }
    Choices choices = ReadChoices();
    if (isSupport) {
        choices = {kAllServiceGroups, 0};  // whatever the owner permits
    }
    const ServicePermission permission(false);
    Obstacle obstacle = ObstacleOf(*rows.front(), permission, choices);
    for (std::size_t i = 1; i < rows.size() && obstacle; ++i) {  // one of the packages that provide it is enough
        obstacle = ObstacleOf(*rows[i], permission, choices) ? obstacle : Obstacle{};
    }
    if (obstacle) {
        return obstacle;
    }
    const auto* service = conf.GetServiceById(id);
    if (service && service->GetPort() > 0 && service->GetPort() <= kLastPort) {
        return {};
    }
    obstacle = PortObstacle(ServiceConf(id.c_str()));
    return obstacle ? obstacle : Obstacle{"port", "the list has no usable port for it"};
}

std::vector<std::string> ListedIds(const Json::Value& settings) {
    std::vector<std::string> ids;
    std::set<std::string> seen;
    const auto* list = Member(settings, "service");
    if (list && list->isArray()) {
        for (const auto& element : *list) {
            if (const auto id = TextOf(element, "id"); !id.empty() && seen.insert(id).second) {
                ids.push_back(id);
            }
        }
    }
    return ids;
}

}  // namespace ardv::ctl
