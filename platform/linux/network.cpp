// SPDX-License-Identifier: Apache-2.0
#include <ardv/network.h>

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/error.h"
#include "platform/linux/network_address.h"
#include "platform/linux/network_link.h"
#include "platform/linux/pppoe.h"
#include "platform/linux/text_buffer.h"

namespace ARDV::Platform {

namespace {

constexpr std::uint32_t kFirstMulticast = 0xe0000000;
constexpr std::uint32_t kFirstHostNetwork = 0x01000000;  // 0.0.0.0/8 is "this network" (RFC 1122)
constexpr std::uint32_t kPointToPointMask = 0xfffffffe;  // with both addresses for hosts (RFC 3021)

template <std::size_t size>
void StoreText(std::string_view text, char (&buffer)[size]) {
    const std::size_t length = std::min(text.size(), size - 1);
    std::copy_n(text.data(), length, buffer);
    buffer[length] = '\0';
}

ALIB_NETIF MakeEntry(const std::vector<NetworkLink>& links, const NetworkLink& link, const IPv4Address& address) {
    ALIB_NETIF entry{};
    StoreText(link.name, entry.name);
    entry.type = InterfaceType(links, link);
    StoreText(Text(address.address), entry.ip);
    StoreText(MaskText(address.prefixLength), entry.mask);
    return entry;
}

int ReadInterfaces(ALIB_NETIF* table, int size) {
    const Result<std::vector<NetworkLink>> links = ReadNetworkLinks();
    if (!links) {
        return Fail(links.Reason());
    }
    const Result<std::vector<IPv4Address>> addresses = ReadIPv4Addresses();
    if (!addresses) {
        return Fail(addresses.Reason());
    }
    int count = 0;
    for (const IPv4Address& address : *addresses) {
        const auto link = std::find_if(links->begin(), links->end(), [&address](const NetworkLink& candidate) {
            return candidate.index == address.index && (candidate.flags & IFF_UP) != 0;
        });
        if (link != links->end() && count < size) {
            table[count++] = MakeEntry(*links, *link, address);
        }
    }
    return count;
}

bool IsContiguous(std::uint32_t mask) {
    const std::uint32_t hosts = ~mask;
    return (hosts & (hosts + 1)) == 0;
}

bool IsHostOf(std::uint32_t address, std::uint32_t mask) {
    const std::uint32_t host = address & ~mask;
    return mask >= kPointToPointMask || (host != 0 && host != ~mask);
}

bool IsValidPair(const char* ip, const char* mask) {
    const std::optional<std::uint32_t> address = ParseIPv4(ip);
    const std::optional<std::uint32_t> bits = ParseIPv4(mask);
    if (!address || !bits || *bits == 0 || !IsContiguous(*bits)) {
        return false;
    }
    return *address >= kFirstHostNetwork && *address < kFirstMulticast && IsHostOf(*address, *bits);
}

bool IsInterfaceName(const char* name) {
    const std::string_view text = name == nullptr ? "" : name;
    return !text.empty() && text.size() < IF_NAMESIZE;
}

int ReadIPv6Of(const char* name, ARDV_IPV6_ADDRESS* table, int size) {
    const unsigned index = if_nametoindex(name);
    if (index == 0) {
        return Fail(errno == ENODEV || errno == ENXIO ? MakeError(ARDV_ERR_NO_DEVICE) : ErrnoError());
    }
    const Result<std::vector<IPv6Address>> addresses = ReadIPv6Addresses();
    if (!addresses) {
        return Fail(addresses.Reason());
    }
    int count = 0;
    for (const IPv6Address& address : *addresses) {
        if (static_cast<unsigned>(address.index) == index && count < size) {
            ARDV_IPV6_ADDRESS& entry = table[count++];
            entry = {{}, address.prefixLength, address.type};
            inet_ntop(AF_INET6, &address.address, entry.address, sizeof(entry.address));
        }
    }
    return count;
}

Result<std::string> GatewayText() {
    const Result<DefaultRoute> route = ReadDefaultRoute();
    return route ? Result<std::string>(Text(route->gateway)) : route.Reason();
}

int CheckPppoe() {
    const Result<PppoeConnection> connection = FindPppoeConnection();
    if (connection) {
        return 1;
    }
    return connection.Reason().code == ARDV_ERR_NO_DEVICE ? 0 : Fail(connection.Reason());
}

Failure StorePppoeAddress(const TextBuffer& ip, const TextBuffer& mask) {
    const Result<PppoeConnection> connection = FindPppoeConnection();
    if (!connection) {
        return connection.Reason();
    }
    if (const Failure failure = mask.CheckRoom(connection->mask)) {
        return failure;
    }
    if (const Failure failure = StoreWhole(connection->ip, ip)) {
        return failure;
    }
    mask.Store(connection->mask);
    return {};
}

Result<std::string> PppoeName() {
    Result<PppoeConnection> connection = FindPppoeConnection();
    return connection ? Result<std::string>(std::move(connection->name)) : connection.Reason();
}

}  // namespace

}  // namespace ARDV::Platform

using namespace ARDV::Platform;

int ALIBNetGetInterfaceInfo(ALIB_NETIF* table, int size) {
    if (size < 0 || (table == nullptr && size > 0)) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([=] { return ReadInterfaces(table, size); });
}

int ALIBIsValidIpMask(const char* ip, const char* mask) {
    return ip != nullptr && mask != nullptr && IsValidPair(ip, mask) ? 1 : 0;
}

int ARDVLnxV6IPGet(const char* name, ARDV_IPV6_ADDRESS* addresses, int size) {
    if (!IsInterfaceName(name) || size < 0 || (addresses == nullptr && size > 0)) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([=] { return ReadIPv6Of(name, addresses, size); });
}

int ARDVNetDefaultGatewayGet(char* gateway, size_t size) {
    const TextBuffer buffer(gateway, size);
    if (!buffer.IsUsable()) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([&] { return Finish(StoreWhole(GatewayText(), buffer)); });
}

int ARDVPPPoECheckStatus(int flags) {
    if (flags != 0) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded(CheckPppoe);
}

int ARDVPPPoeNetInfoGet(char* ip, size_t ipSize, char* mask, size_t maskSize) {
    const TextBuffer ipBuffer(ip, ipSize);
    const TextBuffer maskBuffer(mask, maskSize);
    if (!ipBuffer.IsUsable() || !maskBuffer.IsUsable()) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([&] { return Finish(StorePppoeAddress(ipBuffer, maskBuffer)); });
}

int ARDVPPPoeIntfGet(char* name, size_t size) {
    const TextBuffer buffer(name, size);
    if (!buffer.IsUsable()) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([&] { return Finish(StoreWhole(PppoeName(), buffer)); });
}
