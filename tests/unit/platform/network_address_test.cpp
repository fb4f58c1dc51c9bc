// SPDX-License-Identifier: Apache-2.0
#include <ardv/network.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_addr.h>

#include <chrono>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <ardv/error.h>

#include "made_file.h"
#include "private_network.h"

namespace ARDV::Platform::Test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Lines = std::vector<std::string>;

struct IpAndMask {
    const char* name;
    const char* ip;
    const char* mask;
    int valid;
};

void PrintTo(const IpAndMask& pair, std::ostream* stream) {
    *stream << pair.name;
}

std::string NameOf(const testing::TestParamInfo<IpAndMask>& info) {
    return info.param.name;
}

const std::vector<IpAndMask> kPairs = {
    {"AHost", "192.0.2.7", "255.255.255.0", 1},
    {"TheFirstHost", "192.0.2.1", "255.255.255.0", 1},
    {"TheLastHost", "192.0.2.254", "255.255.255.0", 1},
    {"AHostOfTheWidestNetwork", "192.0.2.7", "128.0.0.0", 1},
    {"AHostOfAnOddNetwork", "192.0.2.129", "255.255.254.0", 1},
    {"BothHostsOfAPair", "192.0.2.6", "255.255.255.254", 1},
    {"TheOtherHostOfAPair", "192.0.2.7", "255.255.255.254", 1},
    {"ALoneHost", "192.0.2.0", "255.255.255.255", 1},
    {"ALoopbackAddress", "127.0.0.1", "255.0.0.0", 1},
    {"TheHighestUnicastAddress", "223.255.255.254", "255.255.255.0", 1},
    {"TheNetwork", "192.0.2.0", "255.255.255.0", 0},
    {"TheBroadcastAddress", "192.0.2.255", "255.255.255.0", 0},
    {"TheBroadcastAddressOfFour", "192.0.2.3", "255.255.255.252", 0},
    {"NoAddress", "0.0.0.0", "255.255.255.255", 0},
    {"ThisNetwork", "0.1.2.3", "255.0.0.0", 0},
    {"Multicast", "224.0.0.1", "255.0.0.0", 0},
    {"ReservedSpace", "240.0.0.1", "255.0.0.0", 0},
    {"LimitedBroadcast", "255.255.255.255", "255.255.255.255", 0},
    {"NoMask", "192.0.2.7", "0.0.0.0", 0},
    {"AMaskWithAHole", "192.0.2.7", "255.0.255.0", 0},
    {"AMaskFromTheWrongEnd", "192.0.2.7", "0.0.0.255", 0},
    {"AMaskOfBitsInABadOrder", "192.0.2.7", "255.255.255.253", 0},
    {"AnEmptyAddress", "", "255.255.255.0", 0},
    {"AnEmptyMask", "192.0.2.7", "", 0},
    {"ThreeNumbers", "192.0.2", "255.255.255.0", 0},
    {"FiveNumbers", "192.0.2.7.1", "255.255.255.0", 0},
    {"ALeadingZero", "192.0.02.7", "255.255.255.0", 0},
    {"ANumberTooLarge", "192.0.2.256", "255.255.255.0", 0},
    {"AHexadecimalNumber", "0xc0.0.2.7", "255.255.255.0", 0},
    {"ABlankBefore", " 192.0.2.7", "255.255.255.0", 0},
    {"ABlankBehind", "192.0.2.7", "255.255.255.0 ", 0},
    {"APrefixLength", "192.0.2.7", "24", 0},
    {"AnIPv6Address", "::ffff:192.0.2.7", "255.255.255.0", 0},
    {"ANullAddress", nullptr, "255.255.255.0", 0},
    {"ANullMask", "192.0.2.7", nullptr, 0},
};

class IpMask : public testing::TestWithParam<IpAndMask> {};

/// "ADDRESS/LENGTH TYPE" lines.
Lines IPv6Of(const std::string& name, int size = 32) {
    std::vector<ARDV_IPV6_ADDRESS> table(static_cast<std::size_t>(size) + 1);
    table.back().prefix_length = -7;
    const int count = ARDVLnxV6IPGet(name.c_str(), table.data(), size);
    EXPECT_GE(count, 0);
    EXPECT_EQ(table.back().prefix_length, -7) << "written past the end";
    Lines lines;
    for (int at = 0; at < count; ++at) {
        const ARDV_IPV6_ADDRESS& entry = table[static_cast<std::size_t>(at)];
        lines.push_back(std::string(entry.address) + "/" + std::to_string(entry.prefix_length) + " " +
                        std::to_string(entry.addr_type));
    }
    return lines;
}

void ExpectIPv6Refused(const char* name, ARDV_IPV6_ADDRESS* table, int size, int code) {
    EXPECT_LT(ARDVLnxV6IPGet(name, table, size), 0);
    EXPECT_EQ(ALIBCErrGet(), code);
}

/// The gateway, or the code of the failure.
std::string Gateway(std::size_t size = 20) {
    std::string buffer(size + 1, 'x');
    const int result = ARDVNetDefaultGatewayGet(buffer.data(), size);
    EXPECT_EQ(buffer[size], 'x') << "written past the end";
    const std::string text = buffer.substr(0, buffer.find('\0'));
    EXPECT_EQ(result == 0, !text.empty());
    return result == 0 ? text : std::to_string(ALIBCErrGet());
}

/// Waits until the kernel's table of IPv6 addresses says so of one: its 32 digits and its flags.
bool WaitForAddress(const std::function<bool(const std::string&, unsigned long)>& isAwaited) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        std::istringstream table(ReadText("/proc/net/if_inet6"));
        std::string address, index, length, scope, flags, name;
        while (table >> address >> index >> length >> scope >> flags >> name) {
            if (isAwaited(address, std::stoul(flags, nullptr, 16))) {
                return true;
            }
        }
        std::this_thread::yield();
    }
    return false;
}

/// Waits until the kernel has found a second owner of an address, given as 32 digits.
bool WaitUntilDuplicate(const std::string& digits) {
    return WaitForAddress([&digits](const std::string& address, unsigned long flags) {
        return address == digits && (flags & IFA_F_DADFAILED) != 0;
    });
}

/// Waits for a temporary address that may be used. Even without a probe the kernel leaves that to a later moment.
bool WaitForTemporary() {
    return WaitForAddress([](const std::string&, unsigned long flags) {
        return (flags & IFA_F_TEMPORARY) != 0 && (flags & IFA_F_TENTATIVE) == 0;
    });
}

const std::string kNone = std::to_string(ARDV_ERR_NO_VALUE);

/// Addresses are given without a probe ("nodad"), unless it is the matter: the kernel may still be at it when they are
/// read, on loopback too.
class IPv6Addresses : public PrivateNetwork {
protected:
    void SetUp() override {
        PrivateNetwork::SetUp();
        if (!IsSkipped() && access("/proc/net/if_inet6", F_OK) != 0) {
            GTEST_SKIP() << "needs a kernel with IPv6";
        }
    }
};

class DefaultGateway : public PrivateNetwork {
protected:
    void SetUp() override {
        PrivateNetwork::SetUp();
        if (!IsSkipped()) {
            ASSERT_TRUE(Ip("link add a0 type veth peer name b0"));
            ASSERT_TRUE(Ip("addr add 192.0.2.7/24 dev a0") && Ip("addr add 198.51.100.7/24 dev b0"));
            ASSERT_TRUE(Ip("link set a0 up") && Ip("link set b0 up"));
        }
    }
};

}  // namespace

TEST_P(IpMask, IsValidOrNot) {
    EXPECT_EQ(ALIBIsValidIpMask(GetParam().ip, GetParam().mask), GetParam().valid);
}

INSTANTIATE_TEST_SUITE_P(Pairs, IpMask, testing::ValuesIn(kPairs), NameOf);

TEST_F(IPv6Addresses, HaveTheirPrefixLengths) {
    EXPECT_THAT(IPv6Of("lo"), ElementsAre("::1/128 0"));
    ASSERT_TRUE(Ip("addr add 2001:db8:0:0:1:0:0:1/64 dev lo nodad") && Ip("addr add fd00::7/8 dev lo nodad"));
    ASSERT_TRUE(Ip("addr add ::192.0.2.1/96 dev lo nodad") && Ip("addr add fec0::1/10 dev lo nodad"));
    EXPECT_THAT(IPv6Of("lo"), UnorderedElementsAre("::1/128 0", "2001:db8::1:0:0:1/64 0", "fd00::7/8 0",
                                                   "::192.0.2.1/96 0", "fec0::1/10 0"));
}

TEST_F(IPv6Addresses, AreThoseOfTheNamedInterface) {
    ASSERT_TRUE(Ip("link add a0 type veth peer name b0"));
    ASSERT_TRUE(Ip("addr add 2001:db8::1/64 dev a0 nodad") && Ip("addr add 2001:db8::2/64 dev b0 nodad"));
    EXPECT_THAT(IPv6Of("a0"), ElementsAre("2001:db8::1/64 0"));
    EXPECT_THAT(IPv6Of("b0"), ElementsAre("2001:db8::2/64 0"));
}

TEST_F(IPv6Addresses, AreAutomaticWhenGivenForATime) {
    ASSERT_TRUE(Ip("addr add 2001:db8::1/64 dev lo valid_lft 3600 preferred_lft 1800 nodad"));
    ASSERT_TRUE(Ip("addr add 2001:db8::2/64 dev lo valid_lft 3600 preferred_lft 0 nodad"));
    EXPECT_THAT(IPv6Of("lo"), UnorderedElementsAre("::1/128 0", "2001:db8::1/64 1", "2001:db8::2/64 1"));
}

TEST_F(IPv6Addresses, AreTemporaryWhenMadeForPrivacy) {
    ASSERT_TRUE(Ip("link add a0 type veth peer name b0"));
    WriteText("/proc/sys/net/ipv6/conf/a0/use_tempaddr", "2");
    WriteText("/proc/sys/net/ipv6/conf/a0/accept_dad", "0");
    ASSERT_TRUE(Ip("link set b0 up") && Ip("link set a0 up"));
    ASSERT_TRUE(Ip("addr add 2001:db8::1/64 dev a0 mngtmpaddr nodad valid_lft 86400 preferred_lft 3600"));
    ASSERT_TRUE(WaitForTemporary());
    const Lines lines = IPv6Of("a0");
    EXPECT_THAT(lines, testing::Contains("2001:db8::1/64 1"));
    EXPECT_THAT(lines, testing::Contains(testing::MatchesRegex("2001:db8:.*/64 2")));
}

TEST_F(IPv6Addresses, AreLeftOutWhileASecondOwnerIsLookedFor) {
    ASSERT_TRUE(Ip("link add a0 type veth peer name b0"));
    WriteText("/proc/sys/net/ipv6/conf/a0/dad_transmits", "100");
    ASSERT_TRUE(Ip("link set b0 up") && Ip("link set a0 up"));
    ASSERT_TRUE(Ip("addr add 2001:db8::1/64 dev a0") && Ip("addr add 2001:db8::2/64 dev a0 nodad"));
    EXPECT_THAT(IPv6Of("a0"), ElementsAre("2001:db8::2/64 0"));
}

TEST_F(IPv6Addresses, AreLeftOutWhenTheyHaveASecondOwner) {
    const OtherNetwork other;
    ASSERT_TRUE(Ip("link add a0 type veth peer name b0 netns " + other.Name()));
    ASSERT_TRUE(other.Ip("addr add 2001:db8::1/64 dev b0 nodad") && other.Ip("link set b0 up"));
    ASSERT_TRUE(Ip("addr add 2001:db8::2/64 dev a0 nodad") && Ip("link set a0 up"));
    ASSERT_TRUE(Ip("addr add 2001:db8::1/64 dev a0"));
    ASSERT_TRUE(WaitUntilDuplicate("20010db8000000000000000000000001"));
    EXPECT_THAT(IPv6Of("a0"), ElementsAre("2001:db8::2/64 0"));
}

TEST_F(IPv6Addresses, HaveTheOwnOneOfALinkBetweenTwoHosts) {
    ASSERT_TRUE(Ip("addr add 2001:db8::1 peer 2001:db8::2/128 dev lo nodad"));
    EXPECT_THAT(IPv6Of("lo"), UnorderedElementsAre("::1/128 0", "2001:db8::1/128 0"));
}

TEST_F(IPv6Addresses, AreNoMoreThanTheCallersRoom) {
    for (const char* address : {"2001:db8::1", "2001:db8::2", "2001:db8::3"}) {
        ASSERT_TRUE(Ip(std::string("addr add ") + address + "/64 dev lo nodad"));
    }
    EXPECT_EQ(IPv6Of("lo", 2).size(), 2U);
    EXPECT_EQ(ARDVLnxV6IPGet("lo", nullptr, 0), 0);
}

TEST_F(IPv6Addresses, MayBeNone) {
    ASSERT_TRUE(Ip("link add a0 type veth peer name b0"));
    EXPECT_THAT(IPv6Of("a0"), IsEmpty());
}

TEST_F(IPv6Addresses, AreRefusedForBadArguments) {
    ARDV_IPV6_ADDRESS entry{};
    ExpectIPv6Refused("tun", &entry, 1, ARDV_ERR_NO_DEVICE);
    ExpectIPv6Refused("sixteen-bytes-ab", &entry, 1, ARDV_ERR_INVALID_ARGUMENT);
    ExpectIPv6Refused("", &entry, 1, ARDV_ERR_INVALID_ARGUMENT);
    ExpectIPv6Refused(nullptr, &entry, 1, ARDV_ERR_INVALID_ARGUMENT);
    ExpectIPv6Refused("lo", nullptr, 1, ARDV_ERR_INVALID_ARGUMENT);
    ExpectIPv6Refused("lo", &entry, -1, ARDV_ERR_INVALID_ARGUMENT);
}

TEST_F(DefaultGateway, IsMissingWithoutADefaultRoute) {
    EXPECT_EQ(Gateway(), kNone);
    ASSERT_TRUE(Ip("route add 203.0.113.0/24 via 192.0.2.1"));
    EXPECT_EQ(Gateway(), kNone);
}

TEST_F(DefaultGateway, IsThatOfTheDefaultRoute) {
    ASSERT_TRUE(Ip("route add default via 192.0.2.1"));
    EXPECT_EQ(Gateway(), "192.0.2.1");
}

TEST_F(DefaultGateway, IsThatOfTheLowestMetric) {
    ASSERT_TRUE(Ip("route add default via 192.0.2.1 metric 300"));
    ASSERT_TRUE(Ip("route add default via 198.51.100.1 metric 20"));
    ASSERT_TRUE(Ip("route add default via 192.0.2.2 metric 100"));
    EXPECT_EQ(Gateway(), "198.51.100.1");
    ASSERT_TRUE(Ip("route add default via 192.0.2.3"));
    EXPECT_EQ(Gateway(), "192.0.2.3");
}

TEST_F(DefaultGateway, IsNoneOfARouteWithoutAGateway) {
    ASSERT_TRUE(Ip("route add default dev a0"));
    EXPECT_EQ(Gateway(), kNone);
    ASSERT_TRUE(Ip("route add default via 198.51.100.1 metric 20"));
    EXPECT_EQ(Gateway(), "198.51.100.1");
}

TEST_F(DefaultGateway, IsNoneOfARouteThatRefuses) {
    ASSERT_TRUE(Ip("route add unreachable default metric 5") && Ip("route add default via 192.0.2.1 metric 9"));
    EXPECT_EQ(Gateway(), "192.0.2.1");
}

TEST_F(DefaultGateway, IsNoneOfAnotherTable) {
    if (!Ip("route add default via 198.51.100.1 table 100")) {
        GTEST_SKIP() << "needs a kernel with several routing tables";
    }
    EXPECT_EQ(Gateway(), kNone);
}

TEST_F(DefaultGateway, GoesWithItsInterface) {
    ASSERT_TRUE(Ip("route add default via 192.0.2.1 metric 5") && Ip("route add default via 198.51.100.1 metric 9"));
    ASSERT_TRUE(Ip("link set a0 down"));
    EXPECT_EQ(Gateway(), "198.51.100.1");
}

TEST_F(DefaultGateway, IsTheFirstUsableOneOfSeveral) {
    if (!Ip("route add default nexthop via 192.0.2.1 dev a0 nexthop via 198.51.100.1 dev b0")) {
        GTEST_SKIP() << "needs a kernel with routes over several gateways";
    }
    EXPECT_EQ(Gateway(), "192.0.2.1");
    ASSERT_TRUE(Ip("link set a0 down"));
    EXPECT_EQ(Gateway(), "198.51.100.1");
}

TEST_F(DefaultGateway, IsNeverCut) {
    ASSERT_TRUE(Ip("route add default via 192.0.2.1"));
    EXPECT_EQ(Gateway(10), "192.0.2.1");
    EXPECT_EQ(Gateway(9), std::to_string(ARDV_ERR_BUFFER_TOO_SMALL));
    EXPECT_LT(ARDVNetDefaultGatewayGet(nullptr, 20), 0);
    char byte = 'x';
    EXPECT_LT(ARDVNetDefaultGatewayGet(&byte, 0), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(byte, 'x');
}

}  // namespace ARDV::Platform::Test
