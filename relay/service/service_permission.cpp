// SPDX-License-Identifier: Apache-2.0
#include <relay/service/service_permission.h>

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include <ardv/key_value_file.h>
#include <ardv/system_service.h>

#include <relay/config/json_store.h>
#include <relay/config/paths.h>
#include <relay/daemon/log.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("service_permission.cpp");

namespace ARDV::Relay {

namespace {

constexpr std::string_view kInetdUnit = "inetd.service";

struct Group {
    const char* id;
    std::uint32_t bit;
};

constexpr Group kGroups[] = {
    {"mobile_apps", SERVICE_GROUP_MOBILE_APPS}, {"pictara", SERVICE_GROUP_PICTARA},
    {"filara", SERVICE_GROUP_FILARA},           {"file_sharing", SERVICE_GROUP_FILE_SHARING},
    {"hos_portal", SERVICE_GROUP_HOS_PORTAL},   {"photo_portal", SERVICE_GROUP_PHOTO_PORTAL},
};

std::uint32_t MaskOf(const SupportService& service) {
    return static_cast<std::uint32_t>(service.group);
}

bool HasItsSetting(const SupportService& service) {
    return !service.conf_file ||
           ALIBCFileCheckKeyValue(service.conf_file, service.conf_key, service.conf_value, service.is_default) != 0;
}

bool PassesItsCheck(const SupportService& service) {
    if (!service.check || !service.conf_value) {
        return true;
    }
    const std::string_view expected = service.conf_value;
    if (expected == "yes" && !service.check()) {
        return false;
    }
    return expected != "no" || !service.check();
}

bool IsItsUnitActive(const SupportService& service) {
    if (!service.unit) {
        return true;
    }
    if (ARDVSystemdActiveStatusGet(service.unit) != 1) {
        return false;
    }
    return service.unit != kInetdUnit || ARDVInetdServiceIsEnable("telnetd") == 1;
}

bool IsItsPackageEnabled(const SupportService& service) {
    return !service.package ||
           access((std::string("/var/packages/") + service.package + "/enabled").c_str(), F_OK) == 0;
}

constexpr bool (*kTests[])(const SupportService&) = {HasItsSetting, PassesItsCheck, IsItsUnitActive,
                                                     IsItsPackageEnabled};

Json::Value ReadSavedList() {
    Json::Value list;
    if (!JsonStore::Read(Paths::kPermissionFile, list)) {
        RELAY_LOG_AT(219, LOG_DEBUG, "invalid relayd config, %s", Paths::kPermissionFile);
        return Json::Value(Json::arrayValue);
    }
    if (!list.isArray()) {
        RELAY_LOG_AT(221, LOG_ERR, "Invalid relayd config, %s", Paths::kPermissionFile);
        return Json::Value(Json::arrayValue);
    }
    return list;
}

/** What the JSON library takes for true; a text or a list, on which it would throw, is not permission. */
bool AsBool(const Json::Value& value) {
    return value.isConvertibleTo(Json::booleanValue) && value.asBool();
}

}  // namespace

ServicePermission::ServicePermission(bool generate) {
    if (generate) {
        GenPermissionConf();
    }
    Json::Value list;
    if (JsonStore::Read(Paths::kPermissionFile, list)) {
        mask_ = JsonToMask(list);
    }
}

std::uint32_t ServicePermission::GetMaskVal(const std::string& name) {
    const auto* group =
        std::find_if(std::begin(kGroups), std::end(kGroups), [&](const Group& g) { return g.id == name; });
    return group == std::end(kGroups) ? 0 : group->bit;
}

Json::Value ServicePermission::GetJsonVal(std::uint32_t mask, std::uint32_t bit, const std::string& id) {
    Json::Value value(Json::objectValue);
    value["id"] = id;
    value["enabled"] = (mask & bit) != 0;
    return value;
}

Json::Value ServicePermission::MaskToJson(std::uint32_t mask) {
    Json::Value list(Json::arrayValue);
    for (const auto& group : kGroups) {
        list.append(GetJsonVal(mask, group.bit, group.id));
    }
    return list;
}

std::uint32_t ServicePermission::JsonToMask(const Json::Value& list) {
    std::uint32_t mask = 0;
    if (!list.isArray()) {
        return mask;
    }
    for (const auto& element : list) {
        if (JsonText::BoolMember(element, "enabled").value_or(false)) {
            mask |= GetMaskVal(JsonText::StringMember(element, "id").value_or(""));
        }
    }
    return mask;
}

bool ServicePermission::IsChosen(const Json::Value& list, const std::string& id) {
    if (!list.isArray()) {
        return true;
    }
    for (const auto& element : list) {
        const auto* enabled = JsonText::Member(element, "enabled");
        if (!enabled || !JsonText::Member(element, "id")) {
            RELAY_LOG_AT(236, LOG_ERR, "Invalid service found");
            continue;
        }
        if (JsonText::StringMember(element, "id") == id) {
            return AsBool(*enabled);
        }
    }
    return true;
}

bool ServicePermission::IsServiceEnabled(const SupportService* service, std::uint32_t mask) const {
    if (!service) {
        return false;
    }
    const bool isEnabled = (MaskOf(*service) & (mask | mask_)) != 0 &&
                           std::all_of(std::begin(kTests), std::end(kTests), [=](auto test) { return test(*service); });
    RELAY_LOG_AT(129, LOG_DEBUG, "%s is %s", service->id, isEnabled ? "enabled" : "disabled");
    return isEnabled;
}

void ServicePermission::GenPermissionConf() {
    std::uint32_t onDevice = 0;
    for (const auto* service = grgszSupportService; service->id; ++service) {
        if (IsServiceEnabled(service, kAllServiceGroups) && MaskOf(*service) < kAllServiceGroups) {
            onDevice |= MaskOf(*service);
        }
    }
    const Json::Value saved = ReadSavedList();
    Json::Value list(Json::arrayValue);
    for (const auto& group : kGroups) {
        if ((onDevice & group.bit) != 0) {
            list.append(GetJsonVal(IsChosen(saved, group.id) ? group.bit : 0, group.bit, group.id));
        }
    }
    if (JsonStore::Write(Paths::kPermissionFile, list)) {
        mask_ = JsonToMask(list);
    }
}

}  // namespace ARDV::Relay
