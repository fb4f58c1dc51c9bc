// SPDX-License-Identifier: Apache-2.0
#include <relay/config/network_conf.h>

#include <strings.h>

#include <algorithm>
#include <array>
#include <utility>

#include <ardv/device_features.h>
#include <ardv/dynamic_dns.h>
#include <ardv/network.h>

#include <relay/config/ipv6_addresses.h>
#include <relay/daemon/log.h>
#include <relay/utils/device_settings.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("network_conf.cpp");

namespace ARDV::Relay {

namespace {

constexpr std::size_t kMaxInterfaces = 256;
constexpr std::size_t kAddressSize = 46;  // INET6_ADDRSTRLEN
constexpr std::size_t kInterfaceNameSize = 128;
constexpr std::size_t kGatewaySize = 20;
constexpr std::size_t kSwitchSize = 8;
constexpr std::size_t kProviderSize = 128;
constexpr std::size_t kHostNameSize = 1024;
constexpr const char kTunnelInterface[] = "tun";

template <std::size_t N>
using Buffer = std::array<char, N>;

}  // namespace

InterfaceConf::InterfaceConf() = default;

InterfaceConf::InterfaceConf(const std::string& name, const std::string& ip, const std::string& mask)
    : name_(name), ip_(ip), mask_(mask) {}

InterfaceConf::InterfaceConf(const ::_tag_ALIB_NETIF& interface)
    : InterfaceConf(interface.name, interface.ip, interface.mask) {}

InterfaceConf::~InterfaceConf() = default;

bool InterfaceConf::Overwrite(const Json::Value& value) {
    JsonText::Take(value, "ip", ip_);
    JsonText::Take(value, "mask", mask_);
    JsonText::Take(value, "name", name_);
    return true;
}

bool InterfaceConf::IsValid() const {
    return !name_.empty() && !ip_.empty() && !mask_.empty() && ALIBIsValidIpMask(ip_.c_str(), mask_.c_str()) != 0 &&
           IPv6Addresses::AreReadable(name_);
}

bool InterfaceConf::Write(Json::Value& value, bool /*full*/) const {
    JsonText::EnsureObject(value)["name"] = name_;
    value["ip"] = ip_;
    value["mask"] = mask_;
    value["ipv6"] = IPv6Addresses::Of(name_);
    return true;
}

bool InterfaceConf::operator==(const InterfaceConf& other) const {
    return name_ == other.name_ && ip_ == other.ip_ && mask_ == other.mask_;
}

bool InterfaceConf::operator!=(const InterfaceConf& other) const {
    return !(*this == other);
}

NetworkConf::NetworkConf(bool read) {
    if (read) {
        ReadConf();
    }
}

NetworkConf::~NetworkConf() = default;

bool NetworkConf::ReadConf() {
    ddns_.clear();
    gateway_.clear();
    interfaces_.clear();
    ReadInterfaces();
    ReadPPPoE();
    ReadGateway();
    ReadDDNS();
    return true;
}

void NetworkConf::AppendIfValid(InterfaceConf interface) {
    if (interface.IsValid()) {
        interfaces_.push_back(std::move(interface));
    }
}

void NetworkConf::ReadInterfaces() {
    std::vector<ALIB_NETIF> table(kMaxInterfaces);
    const int count = ALIBNetGetInterfaceInfo(table.data(), static_cast<int>(table.size()));
    if (count < 1) {
        RELAY_LOG_PLATFORM_FAILURE(LOG_DEBUG, "ALIBNetGetInterfaceInfo failed:");
        return;
    }
    table.resize(std::min(static_cast<std::size_t>(count), table.size()));
    for (const auto& interface : table) {
        if (interface.type == ARDV_INTERFACE_WIRED) {
            AppendIfValid(InterfaceConf(interface));
        }
    }
}

void NetworkConf::ReadPPPoE() {
    if (ARDVPPPoECheckStatus(0) != 1) {
        return;
    }
    Buffer<kAddressSize> ip = {};
    Buffer<kAddressSize> mask = {};
    Buffer<kInterfaceNameSize> name = {};
    if (ARDVPPPoeNetInfoGet(ip.data(), ip.size(), mask.data(), mask.size()) < 0 ||
        ARDVPPPoeIntfGet(name.data(), name.size()) < 0) {
        RELAY_LOG_PLATFORM_FAILURE(LOG_DEBUG, "ARDVPPPoeNetInfoGet failed:");
        return;
    }
    AppendIfValid(InterfaceConf(name.data(), ip.data(), mask.data()));
}

void NetworkConf::ReadGateway() {
    Buffer<kGatewaySize> gateway = {};
    if (ARDVNetDefaultGatewayGet(gateway.data(), gateway.size()) < 0) {
        RELAY_LOG_PLATFORM_FAILURE(LOG_DEBUG, "ARDVNetDefaultGatewayGet failed:");
        return;
    }
    gateway_ = gateway.data();
}

void NetworkConf::ReadDDNS() {
    if (ALIBCSupportGet("supportddns") == 0 ||
        strcasecmp(DeviceSettings::Read("ddns_update", kSwitchSize).text.c_str(), "yes") != 0) {
        return;
    }
    const auto provider = DeviceSettings::Read("ddns_select", kProviderSize);
    if (!provider.IsGiven()) {
        RELAY_LOG(LOG_ERR, "get ddns provider failed");
        return;
    }
    ARDV_DDNS_CONFIG config = {};
    if (ARDVDDNSConfigGet(provider.text.c_str(), &config) < 0) {
        RELAY_LOG_PLATFORM_FAILURE(LOG_ERR, "ARDVDDNSConfigGet failed:");
        return;
    }
    ddns_ = config.hostname;
}

bool NetworkConf::Overwrite(const Json::Value& value) {
    JsonText::Take(value, "ddns", ddns_);
    JsonText::Take(value, "gateway", gateway_);
    JsonText::Take(value, "mode", mode_);
    const auto* list = JsonText::Member(value, "interface");
    if (!list || !list->isArray()) {
        return true;
    }
    interfaces_.clear();
    for (const auto& element : *list) {
        interfaces_.emplace_back().Overwrite(element);
    }
    return true;
}

bool NetworkConf::IsValid() const {
    return std::all_of(interfaces_.begin(), interfaces_.end(), [](const auto& i) { return i.IsValid(); });
}

bool NetworkConf::Write(Json::Value& value, bool full) const {
    auto& list = JsonText::EnsureObject(value)["interface"] = Json::Value(Json::arrayValue);
    for (const auto& interface : interfaces_) {
        interface.Write(list.append(Json::Value()), full);
    }
    value["gateway"] = gateway_;
    value["ddns"] = ddns_;
    value["mode"] = mode_;
    value["fqdn"] = DeviceSettings::Read("external_host_ip", kHostNameSize).text;
    value["ipv6_tunnel"] = IPv6Addresses::Of(kTunnelInterface);
    return true;
}

bool NetworkConf::operator==(const NetworkConf& other) const {
    return ddns_ == other.ddns_ && gateway_ == other.gateway_ && interfaces_ == other.interfaces_;
}

bool NetworkConf::operator!=(const NetworkConf& other) const {
    return !(*this == other);
}

}  // namespace ARDV::Relay
