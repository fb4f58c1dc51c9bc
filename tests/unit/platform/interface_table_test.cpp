// SPDX-License-Identifier: Apache-2.0
#include <ardv/network.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <ardv/error.h>

#include "made_file.h"
#include "private_network.h"

namespace ARDV::Platform::Test {

namespace {

using testing::ElementsAre;

using Lines = std::vector<std::string>;

/// The table as "NAME IP MASK" lines.
Lines Table(int size = 32) {
    std::vector<ALIB_NETIF> table(static_cast<std::size_t>(size) + 1);
    table.back().name[0] = '!';
    const int count = ALIBNetGetInterfaceInfo(table.data(), size);
    EXPECT_EQ(table.back().name[0], '!') << "written past the end";
    Lines lines;
    for (int at = 0; at < count; ++at) {
        const ALIB_NETIF& entry = table[static_cast<std::size_t>(at)];
        lines.push_back(std::string(entry.name) + " " + entry.ip + " " + entry.mask);
    }
    return lines;
}

void ExpectRefused(ALIB_NETIF* table, int size) {
    EXPECT_LT(ALIBNetGetInterfaceInfo(table, size), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
}

using InterfaceTable = PrivateNetwork;

}  // namespace

TEST_F(InterfaceTable, HasAnEntryForEachAddressInTheOrderOfIndices) {
    ASSERT_TRUE(Ip("link add late index 90 type veth peer name early index 80"));
    ASSERT_TRUE(Ip("addr add 198.51.100.1/30 dev late") && Ip("addr add 192.0.2.7/24 dev early"));
    ASSERT_TRUE(Ip("addr add 203.0.113.9/32 dev early"));
    ASSERT_TRUE(Ip("link set late up") && Ip("link set early up"));
    EXPECT_THAT(Table(), ElementsAre("lo 127.0.0.1 255.0.0.0", "early 192.0.2.7 255.255.255.0",
                                     "early 203.0.113.9 255.255.255.255", "late 198.51.100.1 255.255.255.252"));
}

TEST_F(InterfaceTable, HasPrimaryAddressesBeforeSecondaryOnes) {
    ASSERT_TRUE(Ip("addr add 192.0.2.7/24 dev lo") && Ip("addr add 192.0.2.8/24 dev lo"));
    ASSERT_TRUE(Ip("addr add 198.51.100.1/24 dev lo"));
    EXPECT_THAT(Table(), ElementsAre("lo 127.0.0.1 255.0.0.0", "lo 192.0.2.7 255.255.255.0",
                                     "lo 198.51.100.1 255.255.255.0", "lo 192.0.2.8 255.255.255.0"));
}

TEST_F(InterfaceTable, LeavesOutWhatIsSetDown) {
    ASSERT_TRUE(Ip("link add a0 type veth peer name b0") && Ip("addr add 192.0.2.7/24 dev a0"));
    EXPECT_THAT(Table(), ElementsAre("lo 127.0.0.1 255.0.0.0"));
    ASSERT_TRUE(Ip("link set a0 up"));
    EXPECT_THAT(Table(), ElementsAre("lo 127.0.0.1 255.0.0.0", "a0 192.0.2.7 255.255.255.0"))
        << "an interface without a carrier is still up";
}

TEST_F(InterfaceTable, HasTheOwnAddressOfALinkBetweenTwoHosts) {
    ASSERT_TRUE(Ip("link add a0 type veth peer name b0") && Ip("link set a0 up"));
    ASSERT_TRUE(Ip("addr add 192.0.2.7 peer 198.51.100.1/32 dev a0"));
    EXPECT_THAT(Table(), ElementsAre("lo 127.0.0.1 255.0.0.0", "a0 192.0.2.7 255.255.255.255"));
}

TEST_F(InterfaceTable, HasNamesOfFifteenBytesAsAWhole) {
    ASSERT_TRUE(Ip("link add fifteen-bytes-a type veth peer name b0") && Ip("link set fifteen-bytes-a up"));
    ASSERT_TRUE(Ip("addr add 192.0.2.7/0 dev fifteen-bytes-a"));
    EXPECT_THAT(Table(), ElementsAre("lo 127.0.0.1 255.0.0.0", "fifteen-bytes-a 192.0.2.7 0.0.0.0"));
}

TEST_F(InterfaceTable, HasNoMoreThanTheCallersRoom) {
    for (int host = 1; host < 5; ++host) {
        ASSERT_TRUE(Ip("addr add 192.0.2." + std::to_string(host) + "/24 dev lo"));
    }
    EXPECT_THAT(Table(2), ElementsAre("lo 127.0.0.1 255.0.0.0", "lo 192.0.2.1 255.255.255.0"));
    EXPECT_THAT(Table(0), ElementsAre());
    EXPECT_EQ(ALIBNetGetInterfaceInfo(nullptr, 0), 0);
}

TEST_F(InterfaceTable, IsReadWholeWhenItIsLong) {
    constexpr std::size_t kAddresses = 2000;
    std::string batch;
    for (std::size_t at = 0; at < kAddresses; ++at) {
        batch += "addr add 10.1." + std::to_string(at / 250) + "." + std::to_string(at % 250 + 1) + "/32 dev lo\n";
    }
    const ScratchFolder folder;
    ASSERT_TRUE(Ip("-batch " + MakeFile(folder, "batch", batch)));
    const Lines lines = Table(3000);
    ASSERT_EQ(lines.size(), kAddresses + 1);
    EXPECT_EQ(lines.back(), "lo 10.1.7.250 255.255.255.255");
}

TEST_F(InterfaceTable, IsEmptyWithoutAnyAddress) {
    ASSERT_TRUE(Ip("addr flush dev lo"));
    ASSERT_LT(ALIBNetGetInterfaceInfo(nullptr, -1), 0);
    const int line = ALIBCErrorGetLine();
    EXPECT_THAT(Table(), ElementsAre());
    EXPECT_EQ(ALIBCErrorGetLine(), line) << "an empty table is no failure";
}

TEST_F(InterfaceTable, LeavesNoDescriptorOpen) {
    const std::size_t before = OpenDescriptors();
    Table();
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST(InterfaceTableArguments, AreRefusedWhereTheyMakeNoSense) {
    ALIB_NETIF entry{};
    ExpectRefused(nullptr, 1);
    ExpectRefused(&entry, -1);
}

}  // namespace ARDV::Platform::Test
