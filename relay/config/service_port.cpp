// SPDX-License-Identifier: Apache-2.0
#include <relay/config/service_port.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string_view>

#include <ardv/port_mapping.h>
#include <ardvw3/engine.h>
#include <ardvw3/hos.h>

#include <relay/daemon/log.h>
#include <relay/utils/device_settings.h>

RELAY_LOG_SOURCE("service_conf.cpp");

namespace ARDV::Relay::ServicePort {

namespace {

using DeviceSettings::kFile;

constexpr std::size_t kPortTextSize = 16;
constexpr std::int32_t kSshPort = 22;
constexpr std::int32_t kMaxPort = 65535;
constexpr const char kPhotoSettings[] = "/var/packages/Pictara/etc/settings.conf";

struct WebPort {
    std::string_view name;
    int (ardvw3::HOS::*get)() const;
};

constexpr WebPort kWebPorts[] = {
    {"dms", &ardvw3::HOS::GetHttpPort},
    {"dms_https", &ardvw3::HOS::GetHttpsPort},
};

/** A setting in which the owner has noted the port that leads to a service from outside. */
struct ExternalPortSetting {
    std::string_view name;
    std::string_view inId;  // what the service's identifier must contain
    const char* file;
    const char* key;
};

constexpr ExternalPortSetting kExternalPortSettings[] = {
    {"dms_https", "", kFile, "external_port_hos_https"},
    {"dms", "", kFile, "external_port_hos_http"},
    {"https", "photo", kPhotoSettings, "external_port_photo_https"},
    {"http", "photo", kPhotoSettings, "external_port_photo_http"},
};

std::optional<std::int32_t> PortOf(std::string_view text) {
    std::int32_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool isPort = error == std::errc() && end == text.data() + text.size() && port >= 1 && port <= kMaxPort;
    return isPort ? std::optional(port) : std::nullopt;
}

std::optional<std::int32_t> SshPort() {
    const auto setting = DeviceSettings::Read("ssh_port", kPortTextSize);
    return setting.IsGiven() ? PortOf(setting.text) : kSshPort;
}

std::optional<std::int32_t> ListedPort(const ARDV_FW_SERVICE& entry) {
    return entry.port_count == 1 ? PortOf(entry.ports[0]) : std::nullopt;
}

std::optional<std::int32_t> WebServerPort(const WebPort& row) {
    ardvw3::Engine engine;
    const ardvw3::HOS settings(engine);
    return static_cast<std::uint16_t>((settings.*row.get)());
}

std::optional<std::string> NotedOutside(const std::string& id, const std::string& name) {
    for (const auto& row : kExternalPortSettings) {
        if (row.name == name && id.find(row.inId) != std::string::npos) {
            const auto setting = DeviceSettings::Read(row.file, row.key, kPortTextSize);
            return setting.IsGiven() ? std::optional(setting.text) : std::nullopt;
        }
    }
    return {};
}

std::int32_t AskRouter(std::int32_t port) {
    int routerPort = 0;
    if (ALibArdvPortMapGetRouterPort(port, &routerPort) < 0) {
        RELAY_LOG(LOG_DEBUG, "Cannot get router port of port [%d].", port);
        return -1;
    }
    return routerPort >= 1 && routerPort <= kMaxPort ? routerPort : -1;
}

}  // namespace

std::optional<std::int32_t> OnDevice(const std::string& name, const ARDV_FW_SERVICE& entry) {
    const auto* web =
        std::find_if(std::begin(kWebPorts), std::end(kWebPorts), [&](const WebPort& row) { return row.name == name; });
    if (web != std::end(kWebPorts)) {
        return WebServerPort(*web);
    }
    const auto port = name == "ssh" ? SshPort() : ListedPort(entry);
    if (!port) {
        RELAY_LOG(LOG_DEBUG, "%s port does not exist", name.c_str());
    }
    return port;
}

std::int32_t Outside(const std::string& id, const std::string& name, std::int32_t port) {
    // A setting that is there ends the search, even one that is no port: the owner's word goes before the router's.
    const auto noted = NotedOutside(id, name);
    return noted ? PortOf(*noted).value_or(-1) : AskRouter(port);
}

}  // namespace ARDV::Relay::ServicePort
