// SPDX-License-Identifier: Apache-2.0
#include "network_faults.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include <ardv/device_features.h>

#include "real_function.h"

namespace ardv::test {

namespace {

NetworkFaults* active = nullptr;

template <typename... Words>
void Record(const std::string& function, const Words&... words) {
    if (active) {
        active->calls.push_back((function + ... + (std::string(" ") + words)));
    }
}

std::string Size(std::size_t size) {
    return std::to_string(size);
}

void Store(const std::string& text, char* buffer, std::size_t size) {
    std::snprintf(buffer, size, "%s", text.c_str());
}

template <typename Entry>
int StoreEntries(const std::vector<Entry>& entries, Entry* table, int size) {
    const auto count = std::min(entries.size(), static_cast<std::size_t>(size));
    std::copy_n(entries.begin(), count, table);
    return static_cast<int>(entries.size());  // a platform that counts what it could not store
}

std::vector<ARDV_IPV6_ADDRESS> Addresses(const std::vector<std::string>& texts) {
    std::vector<ARDV_IPV6_ADDRESS> addresses;
    for (const auto& text : texts) {
        auto& address = addresses.emplace_back();
        Store(text, address.address, sizeof address.address);
        address.prefix_length = 64;
        address.addr_type = ARDV_IPV6_AUTOMATIC;
    }
    return addresses;
}

}  // namespace

NetworkFaults::NetworkFaults() {
    active = this;
}

NetworkFaults::~NetworkFaults() {
    active = nullptr;
}

ALIB_NETIF MakeInterface(const std::string& name, int type, const std::string& ip, const std::string& mask) {
    ALIB_NETIF entry = {};
    Store(name, entry.name, sizeof entry.name);
    Store(ip, entry.ip, sizeof entry.ip);
    Store(mask, entry.mask, sizeof entry.mask);
    entry.type = type;
    return entry;
}

}  // namespace ardv::test

using namespace ardv::test;

extern "C" {

int ALIBNetGetInterfaceInfo(ALIB_NETIF* table, int size) {
    static const auto real = RealFunction<int (*)(ALIB_NETIF*, int)>("ALIBNetGetInterfaceInfo");
    Record("GetInterfaceInfo");
    const int result =
        active && active->interfaces ? StoreEntries(*active->interfaces, table, size) : real(table, size);
    return active ? active->interfaceResult.value_or(result) : result;
}

int ALIBIsValidIpMask(const char* ip, const char* mask) {
    static const auto real = RealFunction<int (*)(const char*, const char*)>("ALIBIsValidIpMask");
    return active && active->acceptsAnyMask ? 1 : real(ip, mask);
}

int ARDVLnxV6IPGet(const char* name, ARDV_IPV6_ADDRESS* addresses, int size) {
    static const auto real = RealFunction<int (*)(const char*, ARDV_IPV6_ADDRESS*, int)>("ARDVLnxV6IPGet");
    Record("V6IPGet", name, std::to_string(size));
    if (!active || !active->ipv6) {
        return real(name, addresses, size);
    }
    const auto texts = active->ipv6(name);
    return texts ? StoreEntries(Addresses(*texts), addresses, size) : -1;
}

int ARDVNetDefaultGatewayGet(char* gateway, size_t size) {
    static const auto real = RealFunction<int (*)(char*, size_t)>("ARDVNetDefaultGatewayGet");
    Record("DefaultGatewayGet", Size(size));
    if (!active || !active->gateway) {
        return real(gateway, size);
    }
    Store(active->gateway->first, gateway, size);
    return active->gateway->result;
}

int ARDVPPPoECheckStatus(int flags) {
    static const auto real = RealFunction<int (*)(int)>("ARDVPPPoECheckStatus");
    Record("PPPoECheckStatus", std::to_string(flags));
    return active && active->pppoeStatus ? *active->pppoeStatus : real(flags);
}

int ARDVPPPoeNetInfoGet(char* ip, size_t ipSize, char* mask, size_t maskSize) {
    static const auto real = RealFunction<int (*)(char*, size_t, char*, size_t)>("ARDVPPPoeNetInfoGet");
    Record("PPPoeNetInfoGet", Size(ipSize), Size(maskSize));
    if (!active || !active->pppoeAddress) {
        return real(ip, ipSize, mask, maskSize);
    }
    Store(active->pppoeAddress->first, ip, ipSize);
    Store(active->pppoeAddress->second, mask, maskSize);
    return active->pppoeAddress->result;
}

int ARDVPPPoeIntfGet(char* name, size_t size) {
    static const auto real = RealFunction<int (*)(char*, size_t)>("ARDVPPPoeIntfGet");
    Record("PPPoeIntfGet", Size(size));
    if (!active || !active->pppoeInterface) {
        return real(name, size);
    }
    Store(active->pppoeInterface->first, name, size);
    return active->pppoeInterface->result;
}

int ALIBCSupportGet(const char* feature) {
    static const auto real = RealFunction<int (*)(const char*)>("ALIBCSupportGet");
    Record("SupportGet", feature);
    return real(feature);
}

int ARDVDDNSConfigGet(const char* provider, ARDV_DDNS_CONFIG* config) {
    static const auto real = RealFunction<int (*)(const char*, ARDV_DDNS_CONFIG*)>("ARDVDDNSConfigGet");
    Record("DDNSConfigGet", provider);
    if (!active || !active->dynamicDns) {
        return real(provider, config);
    }
    Store(active->dynamicDns->first, config->hostname, sizeof config->hostname);
    return active->dynamicDns->result;
}
}
