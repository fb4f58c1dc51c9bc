// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network_address.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <tuple>

#include <ardv/network.h>

#include "platform/linux/route_netlink.h"

namespace ARDV::Platform {

namespace {

constexpr int kIPv4Bits = 32;

/// What keeps an IPv6 address from being used: it is being probed for a second owner, or has one.
constexpr std::uint32_t kUnusable = IFA_F_TENTATIVE | IFA_F_DADFAILED;

/// All flags; the header has room for eight of them only.
std::uint32_t FlagsOf(const ifaddrmsg& header, const NetlinkAttributes& attributes) {
    return attributes.Take<std::uint32_t>(IFA_FLAGS).value_or(header.ifa_flags);
}

std::optional<IPv4Address> ReadIPv4(const ifaddrmsg& header, const NetlinkAttributes& attributes) {
    std::optional<in_addr> own = attributes.Take<in_addr>(IFA_LOCAL);
    if (!own) {
        own = attributes.Take<in_addr>(IFA_ADDRESS);
    }
    if (!own || header.ifa_family != AF_INET || header.ifa_prefixlen > kIPv4Bits) {
        return {};
    }
    const bool isSecondary = (FlagsOf(header, attributes) & IFA_F_SECONDARY) != 0;
    return IPv4Address{static_cast<int>(header.ifa_index), *own, header.ifa_prefixlen, isSecondary};
}

/// An address that waits for its probe and may be used meanwhile is optimistic.
bool IsUsable(std::uint32_t flags) {
    return (flags & kUnusable) == 0 || ((flags & IFA_F_OPTIMISTIC) != 0 && (flags & IFA_F_DADFAILED) == 0);
}

int TypeOf(std::uint32_t flags) {
    if ((flags & IFA_F_TEMPORARY) != 0) {
        return ARDV_IPV6_TEMPORARY;
    }
    const bool isForGood = (flags & IFA_F_PERMANENT) != 0 && (flags & IFA_F_MANAGETEMPADDR) == 0;
    return isForGood ? ARDV_IPV6_STATIC : ARDV_IPV6_AUTOMATIC;
}

/// The own address of a link between two hosts is the local one.
std::optional<IPv6Address> ReadIPv6(const ifaddrmsg& header, const NetlinkAttributes& attributes) {
    std::optional<in6_addr> own = attributes.Take<in6_addr>(IFA_LOCAL);
    if (!own) {
        own = attributes.Take<in6_addr>(IFA_ADDRESS);
    }
    const std::uint32_t flags = FlagsOf(header, attributes);
    if (!own || header.ifa_family != AF_INET6 || !IsUsable(flags)) {
        return {};
    }
    return IPv6Address{static_cast<int>(header.ifa_index), *own, header.ifa_prefixlen, TypeOf(flags)};
}

struct NextHop {
    in_addr gateway;
    int index;
};

std::optional<NextHop> UsableHop(const NetlinkAttributes& attributes, int index, unsigned flags) {
    const std::optional<in_addr> gateway = attributes.Take<in_addr>(RTA_GATEWAY);
    const bool usable = gateway && gateway->s_addr != INADDR_ANY && (flags & RTNH_F_DEAD) == 0;
    return usable ? std::optional(NextHop{*gateway, index}) : std::nullopt;
}

/// The first usable gateway of a route with several.
std::optional<NextHop> FirstHop(std::string_view hops) {
    while (hops.size() >= sizeof(rtnexthop)) {
        rtnexthop head{};
        std::memcpy(&head, hops.data(), sizeof(head));
        if (head.rtnh_len < sizeof(head) || head.rtnh_len > hops.size()) {
            return {};
        }
        const NetlinkAttributes attributes(hops.substr(0, head.rtnh_len).substr(sizeof(head)));
        if (const auto hop = UsableHop(attributes, head.rtnh_ifindex, head.rtnh_flags)) {
            return hop;
        }
        hops.remove_prefix(std::min<std::size_t>(RTNH_ALIGN(head.rtnh_len), hops.size()));
    }
    return {};
}

bool IsMainDefault(const rtmsg& header, const NetlinkAttributes& attributes) {
    const std::uint32_t table = attributes.Take<std::uint32_t>(RTA_TABLE).value_or(header.rtm_table);
    return header.rtm_family == AF_INET && header.rtm_type == RTN_UNICAST && header.rtm_dst_len == 0 &&
           header.rtm_src_len == 0 && header.rtm_tos == 0 && table == RT_TABLE_MAIN &&
           (header.rtm_flags & RTM_F_CLONED) == 0;
}

std::optional<DefaultRoute> ReadRoute(const rtmsg& header, const NetlinkAttributes& attributes) {
    if (!IsMainDefault(header, attributes)) {
        return {};
    }
    const std::optional<std::string_view> several = attributes.Find(RTA_MULTIPATH);
    const auto hop = several ? FirstHop(*several)
                             : UsableHop(attributes, attributes.Take<int>(RTA_OIF).value_or(0), header.rtm_flags);
    if (!hop) {
        return {};
    }
    return DefaultRoute{hop->gateway, hop->index, attributes.Take<std::uint32_t>(RTA_PRIORITY).value_or(0)};
}

}  // namespace

Result<std::vector<IPv4Address>> ReadIPv4Addresses() {
    auto addresses = ReadNetlinkEntries<ifaddrmsg, IPv4Address>({RTM_GETADDR, RTM_NEWADDR, AF_INET}, ReadIPv4);
    if (addresses) {
        std::stable_sort(addresses->begin(), addresses->end(), [](const auto& left, const auto& right) {
            return std::tie(left.index, left.isSecondary) < std::tie(right.index, right.isSecondary);
        });
    }
    return addresses;
}

Result<std::vector<IPv6Address>> ReadIPv6Addresses() {
    return ReadNetlinkEntries<ifaddrmsg, IPv6Address>({RTM_GETADDR, RTM_NEWADDR, AF_INET6}, ReadIPv6);
}

Result<DefaultRoute> ReadDefaultRoute() {
    const auto routes = ReadNetlinkEntries<rtmsg, DefaultRoute>({RTM_GETROUTE, RTM_NEWROUTE, AF_INET}, ReadRoute);
    if (!routes) {
        return routes.Reason();
    }
    const auto first = std::min_element(routes->begin(), routes->end(),
                                        [](const auto& left, const auto& right) { return left.metric < right.metric; });
    return first == routes->end() ? Result<DefaultRoute>(MakeError(ARDV_ERR_NO_VALUE)) : *first;
}

std::string Text(const in_addr& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address, text.data(), text.size());
    return text.data();
}

std::string MaskText(int prefixLength) {
    const std::uint64_t mask = 0xffffffffULL << (kIPv4Bits - prefixLength);
    return Text({htonl(static_cast<std::uint32_t>(mask))});
}

std::optional<std::uint32_t> ParseIPv4(const char* text) {
    in_addr address{};
    return inet_pton(AF_INET, text, &address) == 1 ? std::optional(ntohl(address.s_addr)) : std::nullopt;
}

}  // namespace ARDV::Platform
