// SPDX-License-Identifier: Apache-2.0
#include "permission_file.h"

#include <algorithm>

#include <relay/service/service_permission.h>

#include "command_error.h"
#include "output.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

bool Belongs(const SupportService& service, const std::string& group) {
    return service.group != SERVICE_GROUP_ALWAYS &&
           static_cast<std::uint32_t>(service.group) == ServicePermission::GetMaskVal(group);
}

bool HasGroup(const Json::Value& list, const std::string& group) {
    return std::any_of(list.begin(), list.end(),
                       [&](const Json::Value& element) { return element.isObject() && element["id"] == group; });
}

CommandError Damaged(const std::string& reason) {
    return {kExitConfig, PermissionFile().Name() + " is damaged: " + reason};
}

/** Refuses what would be lost when the file is written again. */
void CheckNothingBehind() {
    const auto text = ReadText(PermissionFile());
    Json::Value list;
    if (text && !Parse(*text, list) && TextBehind(*text, list)) {
        throw Damaged("there is more text behind its array ('ardvrelayctl config check' tells where)");
    }
}

}  // namespace

JsonFile PermissionFile() {
    return {"the permission file", "/usr/ardv/etc/ardvrelayd/services.conf"};
}

Json::Value ReadPermissions() {
    const auto text = ReadText(PermissionFile());
    Json::Value list(Json::arrayValue);
    if (text && (Parse(*text, list) || !list.isArray())) {
        throw Damaged("it is not a JSON array. Correct it, or remove it to have all groups permitted again");
    }
    return list;
}

Json::Value UpdatePermissions() {
    const Json::Value before = ReadPermissions();  // refuses a damaged file, which the library would move aside
    CheckNothingBehind();
    const ServicePermission update(true);
    Json::Value after = ReadPermissions();
    for (const auto& group : GroupNames()) {
        if (!ServicePermission::IsChosen(before, group) && !HasGroup(after, group)) {
            Complain("the denial of the group " + group +
                     " is dropped, as the group is not on this device now: when it comes back it is permitted");
        }
    }
    return after;
}

std::vector<std::string> GroupNames() {
    std::vector<std::string> names;
    for (const auto& group : ServicePermission::MaskToJson(0)) {
        names.push_back(group["id"].asString());
    }
    return names;
}

std::string GroupOf(const SupportService& service) {
    const auto names = GroupNames();
    const auto found =
        std::find_if(names.begin(), names.end(), [&](const std::string& name) { return Belongs(service, name); });
    return found == names.end() ? "" : *found;
}

std::vector<std::string> ServicesOf(const std::string& group) {
    std::vector<std::string> services;
    for (const auto* row = grgszSupportService; row->id; ++row) {
        if (Belongs(*row, group) && std::find(services.begin(), services.end(), row->id) == services.end()) {
            services.emplace_back(row->id);
        }
    }
    return services;
}

}  // namespace ardv::ctl
