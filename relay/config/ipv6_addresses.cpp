// SPDX-License-Identifier: Apache-2.0
#include <relay/config/ipv6_addresses.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>

#include <ardv/network.h>

namespace ARDV::Relay::IPv6Addresses {

namespace {

constexpr std::size_t kMaxAddresses = 32;

using Addresses = std::array<ARDV_IPV6_ADDRESS, kMaxAddresses>;

int Read(const std::string& interface, Addresses& addresses) {
    return ARDVLnxV6IPGet(interface.c_str(), addresses.data(), static_cast<int>(addresses.size()));
}

struct Scope {
    bool (*fits)(const in6_addr& address);
    const char* name;
};

constexpr Scope kScopes[] = {
    {[](const in6_addr& a) { return IN6_IS_ADDR_LINKLOCAL(&a) != 0; }, "link"},
    {[](const in6_addr& a) { return IN6_IS_ADDR_SITELOCAL(&a) != 0; }, "site"},
    {[](const in6_addr& a) { return IN6_IS_ADDR_LOOPBACK(&a) != 0; }, "loopback"},
    {[](const in6_addr& a) { return IN6_IS_ADDR_V4COMPAT(&a) != 0; }, "compat"},
    {[](const in6_addr& a) { return IN6_IS_ADDR_V4MAPPED(&a) != 0; }, "mapped"},
};
constexpr const char kGlobal[] = "global";

Json::Value Entry(const ARDV_IPV6_ADDRESS& address) {
    Json::Value entry(Json::objectValue);
    entry["address"] = address.address;
    entry["prefix_length"] = address.prefix_length;
    entry["scope"] = ScopeOf(address.address);
    entry["addr_type"] = address.addr_type;
    return entry;
}

}  // namespace

const char* ScopeOf(const char* address) {
    in6_addr parsed = {};
    if (inet_pton(AF_INET6, address, &parsed) != 1) {
        return kGlobal;
    }
    for (const auto& scope : kScopes) {
        if (scope.fits(parsed)) {
            return scope.name;
        }
    }
    return kGlobal;
}

bool AreReadable(const std::string& interface) {
    Addresses addresses = {};
    return Read(interface, addresses) >= 0;
}

Json::Value Of(const std::string& interface) {
    Addresses addresses = {};
    const int count = Read(interface, addresses);
    Json::Value entries(Json::arrayValue);
    for (int i = 0; i < count && i < static_cast<int>(addresses.size()); ++i) {
        entries.append(Entry(addresses[static_cast<std::size_t>(i)]));
    }
    return entries;
}

}  // namespace ARDV::Relay::IPv6Addresses
