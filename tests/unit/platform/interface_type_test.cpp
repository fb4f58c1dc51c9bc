// SPDX-License-Identifier: Apache-2.0
// Interfaces that not every kernel can make, as the kernel would list them.
#include "platform/linux/interface_type.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <net/if_arp.h>

#include <string>
#include <vector>

#include <ardv/network.h>

namespace ARDV::Platform::Test {

namespace {

using Links = std::vector<NetworkLink>;

NetworkLink Hardware(int index) {
    NetworkLink link;
    link.index = index;
    link.hardware = ARPHRD_ETHER;
    link.flags = IFF_UP;
    return link;
}

NetworkLink Radio(int index) {
    NetworkLink link = Hardware(index);
    link.isWireless = true;
    return link;
}

NetworkLink OfKind(int index, const std::string& kind, int lower = 0) {
    NetworkLink link = Hardware(index);
    link.kind = kind;
    link.lower = lower;
    return link;
}

NetworkLink PortOf(NetworkLink link, int master) {
    link.master = master;
    return link;
}

/// The type of the last of these interfaces.
int TypeOfLast(const Links& links) {
    return InterfaceType(links, links.back());
}

constexpr int kOther = ARDV_INTERFACE_OTHER;
constexpr int kWired = ARDV_INTERFACE_WIRED;

}  // namespace

TEST(TypeOfAnInterface, IsWiredForEthernetHardware) {
    EXPECT_EQ(TypeOfLast({Hardware(2)}), kWired);
}

TEST(TypeOfAnInterface, IsOtherForHardwareThatIsNoEthernet) {
    NetworkLink link = Hardware(2);
    link.hardware = ARPHRD_INFINIBAND;
    EXPECT_EQ(TypeOfLast({link}), kOther);
    link.hardware = ARPHRD_PPP;
    EXPECT_EQ(TypeOfLast({link}), kOther);
}

TEST(TypeOfAnInterface, IsThatOfLoopbackByItsFlag) {
    NetworkLink link = Hardware(1);
    link.flags |= IFF_LOOPBACK;
    EXPECT_EQ(TypeOfLast({link}), ARDV_INTERFACE_LOOPBACK);
}

TEST(TypeOfAnInterface, IsWirelessForARadioAndNotForWhatStandsOnIt) {
    EXPECT_EQ(TypeOfLast({Radio(2)}), ARDV_INTERFACE_WIRELESS);
    EXPECT_EQ(TypeOfLast({Radio(2), OfKind(3, "vlan", 2)}), kOther);
    EXPECT_EQ(TypeOfLast({PortOf(Radio(2), 3), OfKind(3, "bridge")}), kOther);
}

TEST(TypeOfAnInterface, IsWiredForAnyGroupWithAWiredPort) {
    for (const char* kind : {"bond", "bridge", "team"}) {
        EXPECT_EQ(TypeOfLast({PortOf(Hardware(2), 3), OfKind(3, kind)}), kWired) << kind;
        EXPECT_EQ(TypeOfLast({PortOf(Radio(1), 3), PortOf(Hardware(2), 3), OfKind(3, kind)}), kWired) << kind;
        EXPECT_EQ(TypeOfLast({Hardware(2), OfKind(3, kind)}), kOther) << kind;
        EXPECT_EQ(TypeOfLast({PortOf(OfKind(2, "tun"), 3), OfKind(3, kind)}), kOther) << kind;
    }
}

TEST(TypeOfAnInterface, IsWiredForWhatAWiredOneCarries) {
    for (const char* kind : {"vlan", "macvlan", "ipvlan", "macsec", "dsa"}) {
        EXPECT_EQ(TypeOfLast({Hardware(2), OfKind(3, kind, 2)}), kWired) << kind;
        EXPECT_EQ(TypeOfLast({OfKind(2, "dummy"), OfKind(3, kind, 2)}), kOther) << kind;
        EXPECT_EQ(TypeOfLast({OfKind(3, kind, 9)}), kOther) << kind << " on an interface that isn't listed";
    }
}

TEST(TypeOfAnInterface, IsOtherForTunnelsOverAWiredOne) {
    for (const char* kind : {"vxlan", "wireguard", "gretap", "tun", "dummy", "ifb", "vrf", "something-new"}) {
        EXPECT_EQ(TypeOfLast({Hardware(2), OfKind(3, kind, 2)}), kOther) << kind;
    }
}

TEST(TypeOfAnInterface, IsFoundThroughSeveralLevels) {
    EXPECT_EQ(TypeOfLast({PortOf(Hardware(2), 4), PortOf(Hardware(3), 4), OfKind(4, "bond"),
                          PortOf(OfKind(5, "vlan", 4), 6), OfKind(6, "bridge")}),
              kWired);
}

TEST(TypeOfAnInterface, IsOtherForThePortOfAVirtualSwitch) {
    NetworkLink end = PortOf(OfKind(3, "veth", 7), 2);
    end.leadsElsewhere = true;
    EXPECT_EQ(TypeOfLast({OfKind(2, "openvswitch"), end}), kOther);
    EXPECT_EQ(TypeOfLast({OfKind(2, "bond"), end}), kWired);
}

TEST(TypeOfAnInterface, IsFoundInABoundedNumberOfSteps) {
    EXPECT_EQ(TypeOfLast({OfKind(2, "vlan", 3), OfKind(3, "vlan", 2)}), kOther) << "a circle";
    EXPECT_EQ(TypeOfLast({PortOf(OfKind(2, "bridge"), 2)}), kOther) << "a bridge that is its own port";
}

}  // namespace ARDV::Platform::Test
