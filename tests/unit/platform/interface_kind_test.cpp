// SPDX-License-Identifier: Apache-2.0
// Which of the interfaces that this kernel can make count as the device's own wired ones.
#include <ardv/network.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <array>
#include <filesystem>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "made_file.h"
#include "private_network.h"

namespace ARDV::Platform::Test {

namespace {

struct InterfaceKind {
    const char* name;
    const char* kind;                   ///< what the kernel must have for the test
    std::vector<std::string> commands;  ///< for ip(8); OTHER is another namespace; the first with the kind may fail
    int type;                           ///< expected of the interface "x0"
};

void PrintTo(const InterfaceKind& kind, std::ostream* stream) {
    *stream << kind.name;
}

std::string NameOf(const testing::TestParamInfo<InterfaceKind>& info) {
    return info.param.name;
}

/// The type that the table gives for an interface; nothing when it isn't listed.
std::optional<int> TypeOf(const std::string& name) {
    std::array<ALIB_NETIF, 16> table{};
    const int count = ALIBNetGetInterfaceInfo(table.data(), static_cast<int>(table.size()));
    for (int at = 0; at < count; ++at) {
        if (name == table[static_cast<std::size_t>(at)].name) {
            return table[static_cast<std::size_t>(at)].type;
        }
    }
    return {};
}

/// The way out of a container: a virtual pair whose other end is elsewhere.
const std::string kWire = "link add wire type veth peer name far netns OTHER";
const std::string kPair = "link add pair0 type veth peer name pair1";

const std::vector<InterfaceKind> kKinds = {
    {"PairOutOfTheNamespaceIsWired", "veth", {"link add x0 type veth peer name far netns OTHER"}, ARDV_INTERFACE_WIRED},
    {"PairWithinTheNamespaceIsOther", "veth", {"link add x0 type veth peer name x1"}, ARDV_INTERFACE_OTHER},
    {"PairOutOfTheNamespaceIsOtherAsPortOfABridge",
     "bridge",
     {"link add x0 type veth peer name far netns OTHER", "link add br0 type bridge", "link set x0 master br0"},
     ARDV_INTERFACE_OTHER},
    {"BridgeWithoutPortsIsOther", "bridge", {"link add x0 type bridge"}, ARDV_INTERFACE_OTHER},
    {"BridgeOfContainersIsOther",
     "bridge",
     {kWire, "link add x0 type bridge", "link set wire master x0"},
     ARDV_INTERFACE_OTHER},
    {"BridgeOnAWiredPortIsWired",
     "macvlan",
     {kWire, "link add link wire name port type macvlan mode passthru", "link add x0 type bridge",
      "link set port master x0"},
     ARDV_INTERFACE_WIRED},
    {"MacvlanOnAWiredOneIsWired",
     "macvlan",
     {kWire, "link add link wire name x0 type macvlan mode bridge"},
     ARDV_INTERFACE_WIRED},
    {"MacvlanOnAPairWithinTheNamespaceIsOther",
     "macvlan",
     {kPair, "link add link pair0 name x0 type macvlan mode bridge"},
     ARDV_INTERFACE_OTHER},
    {"IpvlanOnAWiredOneIsWired", "ipvlan", {kWire, "link add link wire name x0 type ipvlan"}, ARDV_INTERFACE_WIRED},
    {"VlanOnAWiredOneIsWired", "vlan", {kWire, "link add link wire name x0 type vlan id 5"}, ARDV_INTERFACE_WIRED},
    {"VlanOnAPairWithinTheNamespaceIsOther",
     "vlan",
     {kPair, "link add link pair0 name x0 type vlan id 5"},
     ARDV_INTERFACE_OTHER},
    {"BondWithoutPortsIsOther", "bond", {"link add x0 type bond"}, ARDV_INTERFACE_OTHER},
    {"BondOfAWiredOneIsWired",
     "bond",
     {kWire, "link add x0 type bond mode active-backup", "link set wire master x0"},
     ARDV_INTERFACE_WIRED},
    {"TeamOfAWiredOneIsWired",
     "team",
     {kWire, "link add x0 type team", "link set wire master x0"},
     ARDV_INTERFACE_WIRED},
    {"MacsecOnAWiredOneIsWired", "macsec", {kWire, "link add link wire name x0 type macsec"}, ARDV_INTERFACE_WIRED},
    {"DummyIsOther", "dummy", {"link add x0 type dummy"}, ARDV_INTERFACE_OTHER},
    {"IfbIsOther", "ifb", {"link add x0 type ifb"}, ARDV_INTERFACE_OTHER},
    {"VxlanIsOther", "vxlan", {"link add x0 type vxlan id 5 dstport 4789"}, ARDV_INTERFACE_OTHER},
    {"WireguardIsOther", "wireguard", {"link add x0 type wireguard"}, ARDV_INTERFACE_OTHER},
    {"TunIsOther", "tun", {"tuntap add x0 mode tun"}, ARDV_INTERFACE_OTHER},
    {"TapIsOther", "tun", {"tuntap add x0 mode tap"}, ARDV_INTERFACE_OTHER},
};

class InterfaceKinds : public PrivateNetwork, public testing::WithParamInterface<InterfaceKind> {
protected:
    std::string Words(const std::string& command) const {
        return std::regex_replace(command, std::regex("OTHER"), other_->Name());
    }

    void SetUp() override {
        PrivateNetwork::SetUp();
        if (!IsSkipped()) {
            other_.emplace();
        }
    }

    std::optional<OtherNetwork> other_;
};

bool MakesKind(const std::string& command, const std::string& kind) {
    return command.find("type " + kind) != std::string::npos || command.starts_with(kind + "tap ");
}

}  // namespace

TEST_P(InterfaceKinds, AreToldApart) {
    for (const std::string& command : GetParam().commands) {
        const bool done = Ip(Words(command));
        if (!done && MakesKind(command, GetParam().kind)) {
            GTEST_SKIP() << "this kernel makes no interface of kind " << GetParam().kind;
        }
        ASSERT_TRUE(done) << command;
    }
    ASSERT_TRUE(Ip("link set x0 up") && Ip("addr add 192.0.2.7/24 dev x0"));
    EXPECT_EQ(TypeOf("x0"), GetParam().type);
}

INSTANTIATE_TEST_SUITE_P(Kinds, InterfaceKinds, testing::ValuesIn(kKinds), NameOf);

using InterfaceType = PrivateNetwork;

TEST_F(InterfaceType, OfLoopbackIsItsOwn) {
    EXPECT_EQ(TypeOf("lo"), ARDV_INTERFACE_LOOPBACK);
}

TEST_F(InterfaceType, OfAMacvlanOnAnInterfaceOutsideTheContainerIsWired) {
    const OtherNetwork host;
    ASSERT_TRUE(host.Ip("link add pair0 type veth peer name pair1"));
    if (!host.Ip("link add link pair0 name x0 type macvlan mode bridge")) {
        GTEST_SKIP() << "this kernel makes no interface of kind macvlan";
    }
    ASSERT_TRUE(host.Ip("link set x0 netns " + std::to_string(getpid())));
    ASSERT_TRUE(Ip("link set x0 up") && Ip("addr add 192.0.2.7/24 dev x0"));
    EXPECT_EQ(TypeOf("x0"), ARDV_INTERFACE_WIRED);
}

// No machine of the tests has a radio, so sysfs is given the one entry by which the kernel shows it.
TEST_F(InterfaceType, OfAnInterfaceWithARadioIsWirelessUnlessItIsAnotherOfThatName) {
    const OtherNetwork outside;
    ASSERT_TRUE(Ip("link add x0 index 70 type veth peer name far netns " + outside.Name()));
    ASSERT_TRUE(Ip("link set x0 up") && Ip("addr add 192.0.2.7/24 dev x0"));
    ASSERT_EQ(mount("tmpfs", "/sys/class/net", "tmpfs", 0, nullptr), 0);
    std::filesystem::create_directories("/sys/class/net/x0/phy80211");
    WriteText("/sys/class/net/x0/ifindex", "71\n");
    EXPECT_EQ(TypeOf("x0"), ARDV_INTERFACE_WIRED);
    WriteText("/sys/class/net/x0/ifindex", "70\n");
    EXPECT_EQ(TypeOf("x0"), ARDV_INTERFACE_WIRELESS);
}

TEST_F(InterfaceType, IsWirelessByTheNumberThatTheKernelItselfShows) {
    constexpr const char* kKernels = "/run/sysfs";
    const OtherNetwork outside;
    ASSERT_TRUE(Ip("link add x0 type veth peer name far netns " + outside.Name()));
    ASSERT_TRUE(Ip("link set x0 up") && Ip("addr add 192.0.2.7/24 dev x0"));
    std::filesystem::create_directories(kKernels);
    if (mount("sysfs", kKernels, "sysfs", 0, nullptr) != 0) {
        GTEST_SKIP() << "needs the right to mount sysfs";
    }
    ASSERT_EQ(mount("tmpfs", "/sys/class/net", "tmpfs", 0, nullptr), 0);
    std::filesystem::create_directories("/sys/class/net/x0/phy80211");
    WriteText("/sys/class/net/x0/ifindex", "");
    const std::string shown = std::string(kKernels) + "/class/net/x0/ifindex";
    ASSERT_EQ(mount(shown.c_str(), "/sys/class/net/x0/ifindex", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(TypeOf("x0"), ARDV_INTERFACE_WIRELESS);
}

// Hardware can't be made in a namespace, so this one looks, and only looks, at the machine's own.
TEST(MachinesOwnInterface, IsWiredWhereItIsEthernetHardware) {
    namespace fs = std::filesystem;
    const int machine = open(("/proc/" + std::to_string(getppid()) + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
    if (setns(machine, CLONE_NEWNET) != 0) {
        GTEST_SKIP() << "needs the right to look at the machine's network";
    }
    close(machine);
    int seen = 0;
    for (const auto& entry : fs::directory_iterator("/sys/class/net")) {
        const fs::path& path = entry.path();
        const bool isRadio = fs::exists(path / "phy80211") || fs::exists(path / "wireless");
        const std::optional<int> type = TypeOf(path.filename());
        if (type && fs::exists(path / "device") && ReadText(path / "type") == "1\n" && !isRadio) {
            EXPECT_EQ(type, ARDV_INTERFACE_WIRED) << path;
            ++seen;
        }
    }
    if (seen == 0) {
        GTEST_SKIP() << "this machine has no Ethernet hardware with an IPv4 address";
    }
}

}  // namespace ARDV::Platform::Test
