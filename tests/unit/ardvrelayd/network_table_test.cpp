// SPDX-License-Identifier: Apache-2.0
#include "network_table.h"

#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace ardv::daemon;

namespace {

template <typename Value>
std::string Bytes(const Value& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string Attribute(unsigned short type, std::string_view value) {
    const nlattr head = {static_cast<unsigned short>(sizeof head + value.size()), type};
    std::string text = Bytes(head);
    text.append(value);
    constexpr std::size_t kAlignment = NLA_ALIGNTO;
    text.resize((text.size() + kAlignment - 1) / kAlignment * kAlignment);
    return text;
}

constexpr std::uint32_t kLan = 2;
constexpr std::uint32_t kTunnel = 7;

std::string NamedLink(std::uint32_t index, const std::string& name, unsigned flags, const std::string& attributes = "",
                      unsigned char family = AF_UNSPEC) {
    ifinfomsg link = {};
    link.ifi_family = family;
    link.ifi_index = static_cast<int>(index);
    link.ifi_flags = flags;
    return Bytes(link) + (name.empty() ? "" : Attribute(IFLA_IFNAME, name + '\0')) + attributes;
}

std::string Link(unsigned flags, const std::string& attributes = "") {
    return NamedLink(kLan, "lan0", flags, attributes);
}

std::string Tunnel(unsigned flags) {
    return NamedLink(kTunnel, "tun1000", flags);
}

std::string Address(std::uint32_t flags, const std::string& address = "0123456789abcdef", std::uint32_t index = kLan) {
    ifaddrmsg header = {};
    header.ifa_family = AF_INET6;
    header.ifa_prefixlen = 64;
    header.ifa_index = index;
    return Bytes(header) + Attribute(IFA_ADDRESS, address) + Attribute(IFA_FLAGS, Bytes(flags));
}

std::string Route(const std::string& gateway, unsigned flags = 0) {
    rtmsg route = {};
    route.rtm_family = AF_INET;
    route.rtm_table = RT_TABLE_MAIN;
    route.rtm_flags = flags;
    return Bytes(route) + Attribute(RTA_GATEWAY, gateway);
}

std::string RouteOutOf(std::uint32_t index) {
    return Route("gateway") + Attribute(RTA_OIF, Bytes(index));
}

std::string AddressOf(std::uint32_t index) {
    return Address(0, "0123456789abcdef", index);
}

}  // namespace

TEST(NetworkTable, TellsNewsFromWhatIsSaidAgain) {
    NetworkTable table;
    EXPECT_TRUE(table.Take(RTM_NEWLINK, Link(IFF_UP)));
    EXPECT_FALSE(table.Take(RTM_NEWLINK, Link(IFF_UP)));
    EXPECT_TRUE(table.Take(RTM_NEWADDR, Address(0)));
    EXPECT_FALSE(table.Take(RTM_NEWADDR, Address(0)));
    EXPECT_TRUE(table.Take(RTM_NEWROUTE, Route("a")));
    EXPECT_FALSE(table.Take(RTM_NEWROUTE, Route("a")));
    EXPECT_EQ(table.Size(), 3U);
}

TEST(NetworkTable, TakesWhatGoesForNewsAndForgetsIt) {
    NetworkTable table;
    EXPECT_TRUE(table.Take(RTM_DELADDR, Address(0))) << "also where nothing was known";
    table.Take(RTM_NEWADDR, Address(0));
    EXPECT_TRUE(table.Take(RTM_DELADDR, Address(0)));
    EXPECT_TRUE(table.Take(RTM_NEWADDR, Address(0)));
    table.Take(RTM_NEWLINK, Link(IFF_UP));
    EXPECT_TRUE(table.Take(RTM_DELLINK, Link(IFF_UP)));
    EXPECT_TRUE(table.Take(RTM_NEWLINK, Link(IFF_UP)));
    table.Take(RTM_NEWROUTE, Route("a"));
    EXPECT_TRUE(table.Take(RTM_DELROUTE, Route("a")));
    EXPECT_TRUE(table.Take(RTM_NEWROUTE, Route("a")));
}

TEST(NetworkTable, TakesAChangeOfFlagsForNews) {
    NetworkTable table;
    table.Take(RTM_NEWADDR, Address(IFA_F_TENTATIVE));
    EXPECT_TRUE(table.Take(RTM_NEWADDR, Address(IFA_F_PERMANENT)));
    table.Take(RTM_NEWLINK, Link(IFF_UP));
    EXPECT_TRUE(table.Take(RTM_NEWLINK, Link(IFF_UP | IFF_LOWER_UP)));
    EXPECT_FALSE(table.Take(RTM_NEWLINK, Link(IFF_UP | IFF_LOWER_UP | IFF_PROMISC))) << "somebody listens in";
}

TEST(NetworkTable, TakesAChangeOfALinksNameAddressOrStateForNews) {
    NetworkTable table;
    table.Take(RTM_NEWLINK, Link(IFF_UP, Attribute(IFLA_MTU, "1500")));
    EXPECT_TRUE(table.Take(RTM_NEWLINK, Link(IFF_UP, Attribute(IFLA_MTU, "1400"))));
    EXPECT_TRUE(table.Take(RTM_NEWLINK, Link(IFF_UP, Attribute(IFLA_ADDRESS, "abcdef"))));
    EXPECT_TRUE(table.Take(RTM_NEWLINK, Link(IFF_UP, Attribute(IFLA_MASTER, "3..."))));
    EXPECT_FALSE(table.Take(RTM_NEWLINK, Link(IFF_UP, Attribute(IFLA_MASTER, "3...") + Attribute(IFLA_STATS, "9"))));
}

TEST(NetworkTable, PassesOverARadiosScans) {
    NetworkTable table;
    EXPECT_FALSE(table.Take(RTM_NEWLINK, Link(IFF_UP, Attribute(IFLA_WIRELESS, "scan"))));
    EXPECT_EQ(table.Size(), 0U);
}

TEST(NetworkTable, PassesOverRoutesToOneDestinationThatTheKernelRemembers) {
    NetworkTable table;
    EXPECT_FALSE(table.Take(RTM_NEWROUTE, Route("a", RTM_F_CLONED)));
    EXPECT_FALSE(table.Take(RTM_DELROUTE, Route("a", RTM_F_CLONED)));
}

TEST(NetworkTable, SeesARouteComeBackInThePlaceOfTheOneThatReplacedIt) {
    NetworkTable table;
    table.Take(RTM_NEWROUTE, Route("a"));
    EXPECT_TRUE(table.Take(RTM_NEWROUTE, Route("b")));
    EXPECT_TRUE(table.Take(RTM_NEWROUTE, Route("a")));
}

TEST(NetworkTable, TakesARouteForNewsAgainAfterItsLinkOrAddressChanged) {
    NetworkTable table;
    table.Take(RTM_NEWROUTE, Route("a"));
    table.Take(RTM_NEWLINK, Link(0));
    EXPECT_TRUE(table.Take(RTM_NEWROUTE, Route("a"))) << "the kernel removes routes of a link that goes down unheard";
    table.Take(RTM_NEWADDR, Address(0));
    EXPECT_TRUE(table.Take(RTM_NEWROUTE, Route("a")));
    table.Take(RTM_NEWADDR, Address(0));
    EXPECT_FALSE(table.Take(RTM_NEWROUTE, Route("a"))) << "nothing has happened to it";
}

TEST(NetworkTable, PassesOverTheTunnelsInterfaceWithItsAddressesAndRoutes) {
    NetworkTable table;
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(table.Take(RTM_NEWLINK, Tunnel(0)));
        EXPECT_FALSE(table.Take(RTM_NEWLINK, Tunnel(IFF_UP)));
        EXPECT_FALSE(table.Take(RTM_NEWLINK, NamedLink(kTunnel, "", IFF_UP))) << "also where its name is not repeated";
        EXPECT_FALSE(table.Take(RTM_NEWADDR, AddressOf(kTunnel)));
        EXPECT_FALSE(table.Take(RTM_NEWROUTE, RouteOutOf(kTunnel)));
        EXPECT_EQ(table.Size(), 0U);
        EXPECT_FALSE(table.Take(RTM_DELROUTE, RouteOutOf(kTunnel)));
        EXPECT_FALSE(table.Take(RTM_DELADDR, AddressOf(kTunnel)));
        EXPECT_FALSE(table.Take(RTM_DELLINK, Tunnel(0)));
    }
}

TEST(NetworkTable, TellsOtherInterfacesFromTheTunnels) {
    NetworkTable table;
    table.Take(RTM_NEWLINK, Tunnel(IFF_UP));
    for (const char* name : {"tun100", "tun10000", "xtun1000", "TUN1000"}) {
        EXPECT_TRUE(table.Take(RTM_NEWLINK, NamedLink(kLan, name, IFF_UP))) << name;
    }
    EXPECT_TRUE(table.Take(RTM_NEWADDR, AddressOf(kLan)));
    EXPECT_TRUE(table.Take(RTM_NEWROUTE, RouteOutOf(kLan)));
    EXPECT_TRUE(table.Take(RTM_NEWADDR, AddressOf(kTunnel * 10))) << "whose index begins like the tunnel's";
    EXPECT_FALSE(table.Take(RTM_NEWADDR, AddressOf(kTunnel)));
}

TEST(NetworkTable, KeepsWhatItKnowsOfOthersWhileTheTunnelComesAndGoes) {
    NetworkTable table;
    const auto other = NamedLink(kTunnel * 10, "lan1", IFF_UP);
    table.Take(RTM_NEWLINK, other);
    table.Take(RTM_NEWADDR, AddressOf(kTunnel * 10));
    table.Take(RTM_NEWROUTE, RouteOutOf(kTunnel * 10));
    table.Take(RTM_NEWLINK, Tunnel(IFF_UP));
    table.Take(RTM_NEWROUTE, RouteOutOf(kTunnel));
    table.Take(RTM_DELLINK, Tunnel(0));
    EXPECT_FALSE(table.Take(RTM_NEWLINK, other));
    EXPECT_FALSE(table.Take(RTM_NEWADDR, AddressOf(kTunnel * 10)));
    EXPECT_FALSE(table.Take(RTM_NEWROUTE, RouteOutOf(kTunnel * 10)));
}

TEST(NetworkTable, TakesAnInterfaceThatTakesTheTunnelsNameForOneThatGoes) {
    NetworkTable table;
    table.Take(RTM_NEWLINK, NamedLink(kTunnel, "lan1", IFF_UP));
    table.Take(RTM_NEWADDR, AddressOf(kTunnel));
    EXPECT_TRUE(table.Take(RTM_NEWLINK, Tunnel(IFF_UP)));
    EXPECT_EQ(table.Size(), 0U);
    EXPECT_FALSE(table.Take(RTM_DELADDR, AddressOf(kTunnel)));
    EXPECT_TRUE(table.Take(RTM_NEWLINK, NamedLink(kTunnel, "lan1", IFF_UP)));
    EXPECT_TRUE(table.Take(RTM_NEWADDR, AddressOf(kTunnel))) << "it was taken away unheard";
}

TEST(NetworkTable, TakesAnInterfaceThatGivesUpTheTunnelsNameForOneThatComes) {
    NetworkTable table;
    table.Take(RTM_NEWLINK, Tunnel(IFF_UP));
    EXPECT_TRUE(table.Take(RTM_NEWLINK, NamedLink(kTunnel, "lan1", IFF_UP)));
    EXPECT_TRUE(table.Take(RTM_NEWADDR, AddressOf(kTunnel)));
    EXPECT_TRUE(table.Take(RTM_NEWROUTE, RouteOutOf(kTunnel)));
    EXPECT_FALSE(table.Take(RTM_NEWLINK, NamedLink(kTunnel + 1, "tun1000", IFF_UP))) << "the next one of this name";
    EXPECT_FALSE(table.Take(RTM_NEWADDR, AddressOf(kTunnel + 1)));
}

TEST(NetworkTable, SeesAnInterfaceThatGetsTheTunnelsFormerIndex) {
    NetworkTable table;
    table.Take(RTM_NEWLINK, Tunnel(IFF_UP));
    table.Take(RTM_DELLINK, Tunnel(0));
    EXPECT_TRUE(table.Take(RTM_NEWADDR, AddressOf(kTunnel)));
    EXPECT_TRUE(table.Take(RTM_NEWROUTE, RouteOutOf(kTunnel)));
    EXPECT_TRUE(table.Take(RTM_NEWLINK, NamedLink(kTunnel, "lan1", IFF_UP)));
}

TEST(NetworkTable, TakesAnAddressToldBeforeTheTunnelsLinkForNewsOnce) {
    NetworkTable table;
    EXPECT_TRUE(table.Take(RTM_NEWADDR, AddressOf(kTunnel)));
    EXPECT_FALSE(table.Take(RTM_NEWLINK, Tunnel(IFF_UP)));
    EXPECT_FALSE(table.Take(RTM_NEWADDR, AddressOf(kTunnel)));
    EXPECT_FALSE(table.Take(RTM_DELADDR, AddressOf(kTunnel)));
    EXPECT_EQ(table.Size(), 0U);
}

TEST(NetworkTable, KnowsTheTunnelStillAfterABridgeHasLetGoOfIt) {
    NetworkTable table;
    table.Take(RTM_NEWLINK, Tunnel(IFF_UP));
    EXPECT_FALSE(table.Take(RTM_DELLINK, NamedLink(kTunnel, "tun1000", IFF_UP, "", AF_BRIDGE)));
    EXPECT_FALSE(table.Take(RTM_NEWADDR, AddressOf(kTunnel)));
}

TEST(NetworkTable, ForgetsTheTunnelWithEverything) {
    NetworkTable table;
    table.Take(RTM_NEWLINK, Tunnel(IFF_UP));
    table.Forget();
    EXPECT_TRUE(table.Take(RTM_NEWADDR, AddressOf(kTunnel)));
}

TEST(NetworkTable, TakesEverythingForNewsOnceItHasForgotten) {
    NetworkTable table;
    table.Take(RTM_NEWLINK, Link(IFF_UP));
    table.Take(RTM_NEWADDR, Address(0));
    table.Take(RTM_NEWROUTE, Route("a"));
    table.Forget();
    EXPECT_EQ(table.Size(), 0U);
    EXPECT_TRUE(table.Take(RTM_NEWROUTE, Route("a")));
    EXPECT_TRUE(table.Take(RTM_NEWADDR, Address(0)));
    EXPECT_TRUE(table.Take(RTM_NEWLINK, Link(IFF_UP)));
}

TEST(NetworkTable, RemembersSoMuchAndNoMore) {
    constexpr std::size_t kMost = 4096;
    NetworkTable table;
    for (std::size_t i = 0; i < kMost + 10; ++i) {
        EXPECT_TRUE(table.Take(RTM_NEWADDR, Address(0, std::to_string(i))));
    }
    EXPECT_EQ(table.Size(), kMost);
    EXPECT_FALSE(table.Take(RTM_NEWADDR, Address(0, "7")));
    EXPECT_TRUE(table.Take(RTM_NEWADDR, Address(0, std::to_string(kMost + 5)))) << "news whenever it is said";
}

TEST(NetworkTable, PassesOverOtherMessagesAndShortOnes) {
    NetworkTable table;
    EXPECT_FALSE(table.Take(RTM_NEWNEIGH, Link(0)));
    EXPECT_FALSE(table.Take(NLMSG_DONE, ""));
    EXPECT_FALSE(table.Take(RTM_NEWLINK, Link(0).substr(0, sizeof(ifinfomsg) - 1)));
    EXPECT_FALSE(table.Take(RTM_NEWADDR, ""));
    EXPECT_FALSE(table.Take(RTM_NEWROUTE, std::string(sizeof(rtmsg) - 1, '\0')));
}

TEST(NetworkTable, ReadsNothingBeyondARecordWhateverItsAttributesClaim) {
    std::mt19937 random(7);
    NetworkTable table;
    for (int i = 0; i < 20000; ++i) {
        auto record = i % 2 == 0 ? Link(IFF_UP) : Route("gateway");
        for (int changes = 0; changes < 3; ++changes) {
            record[random() % record.size()] = static_cast<char>(random());
        }
        record.resize(random() % (record.size() + 1));
        const std::vector<char> exact(record.begin(), record.end());  // a step beyond its end is one beyond its block
        table.Take(static_cast<std::uint16_t>(RTM_NEWLINK + random() % 12), {exact.data(), exact.size()});
    }
    EXPECT_LE(table.Size(), 3U * 4096U);
}
