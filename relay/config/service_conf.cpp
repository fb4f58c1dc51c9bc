// SPDX-License-Identifier: Apache-2.0
#include <relay/config/service_conf.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <string_view>

#include <ardv/firewall_service.h>
#include <ardvw3/engine.h>
#include <ardvw3/hos.h>
#include <ardvw3/www_service.h>

#include <relay/config/service_port.h>
#include <relay/daemon/log.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("service_conf.cpp");

namespace ARDV::Relay {

namespace {

constexpr std::string_view kSupportPrefix = "support_";

template <typename Settings>
bool HasHttp2() {
    ardvw3::Engine engine;
    return Settings(engine).GetEnableSPDY();
}

struct Http2Service {
    std::string_view inId;
    bool (*isOn)();
};

constexpr Http2Service kHttp2Services[] = {
    {"hos_portal_http2", &HasHttp2<ardvw3::HOS>},
    {"photo_portal_http2", &HasHttp2<ardvw3::WWWService>},
};

struct FirewallName {
    std::string_view service;
    const char* firewall;
};

constexpr FirewallName kFirewallNames[] = {
    {"photo_http", "http"},
    {"photo_portal_http", "http"},
    {"photo_https", "https"},
    {"photo_portal_https", "https"},
    {"photo_portal_http2", "https"},
    {"audio_http", "dms"},
    {"hos", "dms"},
    {"hos_portal", "dms"},
    {"file_sharing", "dms"},
    {"audio_https", "dms_https"},
    {"hos_https", "dms_https"},
    {"hos_portal_https", "dms_https"},
    {"hos_portal_http2", "dms_https"},
    {"file_sharing_https", "dms_https"},
};

// The file-sync service goes by the name of whichever of its packages is installed.
constexpr std::array<const char*, 2> kFileSyncNames = {"drivara", "filara"};

struct FreeList {
    void operator()(ARDV_FW_SERVICE_LIST* list) const { ARDVFWServiceFree(list); }
};
using FirewallList = std::unique_ptr<ARDV_FW_SERVICE_LIST, FreeList>;

FirewallList ReadFirewallList() {
    ARDV_FW_SERVICE_LIST* list = nullptr;
    const int count = ARDVFwServiceEnum(&list);
    FirewallList owner(list);
    if (count < 1) {
        RELAY_LOG_PLATFORM_FAILURE(LOG_ERR, "enum fw service failed");
        owner.reset();
    }
    return owner;
}

bool LacksHttp2(const std::string& id) {
    return std::any_of(std::begin(kHttp2Services), std::end(kHttp2Services),
                       [&](const Http2Service& row) { return id.find(row.inId) != std::string::npos && !row.isOn(); });
}

std::string LookupName(const std::string& id) {
    return id.starts_with(kSupportPrefix) ? id.substr(kSupportPrefix.size()) : id;
}

std::string FirewallNameOf(const std::string& lookupName) {
    const auto* row = std::find_if(std::begin(kFirewallNames), std::end(kFirewallNames),
                                   [&](const FirewallName& r) { return r.service == lookupName; });
    return row == std::end(kFirewallNames) ? lookupName : row->firewall;
}

const ARDV_FW_SERVICE* Find(const FirewallList& list, const std::string& name) {
    if (name.find('\0') != std::string::npos) {
        return nullptr;  // the platform would see its beginning alone, which is another service's name
    }
    if (std::find(kFileSyncNames.begin(), kFileSyncNames.end(), name) == kFileSyncNames.end()) {
        return ARDVFWServiceFind(list.get(), name.c_str());
    }
    for (const char* candidate : kFileSyncNames) {
        if (const auto* found = ARDVFWServiceFind(list.get(), candidate)) {
            return found;
        }
    }
    return nullptr;
}

/** The entry that can be forwarded to, or null with a message. */
const ARDV_FW_SERVICE* FindForwardable(const FirewallList& list, const std::string& lookupName,
                                       const std::string& name) {
    const auto* entry = Find(list, name);
    if (!entry) {
        RELAY_LOG(LOG_DEBUG, "cannot find %s in fw service", name.c_str());
        return nullptr;
    }
    if (!entry->service) {
        RELAY_LOG(LOG_DEBUG, "%s cannot find service name", lookupName.c_str());
        return nullptr;
    }
    if (!entry->ports) {
        RELAY_LOG(LOG_DEBUG, "%s does not support port forwarding", lookupName.c_str());
        return nullptr;
    }
    return entry;
}

void TakeName(const ARDV_FW_SERVICE& entry, std::string& name) {
    if (entry.section && entry.title) {
        name = std::string(entry.section) + ":" + entry.title;
    } else if (entry.display_name) {
        name = entry.display_name;
    }
}

}  // namespace

ServiceConf::ServiceConf(const char* id) {
    if (id) {
        ReadConf(id);
    }
}

ServiceConf::ServiceConf(const Json::Value& value, bool read) {
    if (const auto id = JsonText::StringMember(value, "id")) {
        id_ = *id;
        if (read) {
            ReadConf(*id);
        }
    }
    ServiceConf::Overwrite(value);
}

ServiceConf::~ServiceConf() = default;

bool ServiceConf::Overwrite(const Json::Value& value) {
    JsonText::Take(value, "id", id_);
    JsonText::Take(value, "name", name_);
    JsonText::Take(value, "port", port_);
    JsonText::Take(value, "ext_port", extPort_);
    return true;
}

bool ServiceConf::IsValid() const {
    return !id_.empty() && port_ >= 0;
}

bool ServiceConf::Write(Json::Value& value, bool full) const {
    JsonText::EnsureObject(value)["id"] = id_;
    if (!full) {
        return true;
    }
    value["name"] = name_;
    if (port_ >= 0) {
        value["port"] = port_;
    }
    if (extPort_ >= 0) {
        value["ext_port"] = extPort_;
    }
    return true;
}

bool ServiceConf::operator==(const ServiceConf& other) const {
    return id_ == other.id_;
}

bool ServiceConf::operator!=(const ServiceConf& other) const {
    return !(*this == other);
}

bool ServiceConf::ReadConf(const std::string& id) {
    id_ = id;
    const FirewallList list = ReadFirewallList();
    if (!list || LacksHttp2(id_)) {
        return false;
    }
    const auto lookupName = LookupName(id_);
    const auto name = FirewallNameOf(lookupName);
    const auto* entry = FindForwardable(list, lookupName, name);
    if (!entry) {
        return false;
    }
    TakeName(*entry, name_);
    port_ = ServicePort::OnDevice(name, *entry).value_or(port_);
    extPort_ = ServicePort::Outside(id_, name, port_);
    return true;
}

}  // namespace ARDV::Relay
