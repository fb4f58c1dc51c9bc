// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <ardv/cloud_identity.h>
#include <ardv/error.h>

#include "child_process.h"

namespace ARDV::Platform::Test {

namespace {

constexpr int kNoRights = 77;

using Command = std::vector<std::string>;

/// A network of its own with the sysfs that belongs to it.
bool EnterPrivateNetwork() {
    return unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 && mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0;
}

bool RunAll(const std::vector<Command>& commands) {
    for (const Command& command : commands) {
        if (Run(command) != 0) {
            std::cerr << "failed: ip " << command[1] << ' ' << command[2] << '\n';
            return false;
        }
    }
    return true;
}

Command AddLink(const std::string& name, const std::string& kind, const std::string& address) {
    return {"ip", "link", "add", name, "address", address, "type", kind};
}

/// A virtual pair; the other end comes right behind.
Command AddPair(const std::string& name, int index, const std::string& address) {
    const auto peer = std::to_string(index + 1);
    return {"ip",   "link", "add",       name,    "index", std::to_string(index), "address", address, "type",
            "veth", "peer", name + "-p", "index", peer};
}

/// Covers an interface's sysfs with one that has a "device", as that of a physical port.
bool MakeLookPhysical(const std::string& name) {
    return mount("tmpfs", "/sys/class/net", "tmpfs", 0, nullptr) == 0 &&
           std::filesystem::create_directories("/sys/class/net/" + name + "/device");
}

/// Whether a machine with these links reports this MAC address ("" for ARDV_ERR_NO_DEVICE): 0 when it does.
int ReportsMac(const std::vector<Command>& links, const std::string& expected, const std::string& physical = "") {
    std::filesystem::remove("/etc/ardv/identity.conf");
    return ChildProcess([&] {
               if (!EnterPrivateNetwork()) {
                   return kNoRights;
               }
               if (!RunAll(links) || (!physical.empty() && !MakeLookPhysical(physical))) {
                   return 2;
               }
               char mac[ARDV_MAC_SIZE] = "x";
               const int result = ARDVHsinfoCloudServiceGetMacAddress(mac, sizeof(mac));
               const bool absent = result < 0 && ALIBCErrGet() == ARDV_ERR_NO_DEVICE;
               const bool matches = mac == expected && (expected.empty() ? absent : result == 0);
               std::cerr << (matches ? "" : "reported: ") << (matches ? "" : mac);
               return matches ? 0 : 1;
           })
        .Wait();
}

class WiredInterface : public testing::Test {
protected:
    void SetUp() override {
        if (ChildProcess([] { return EnterPrivateNetwork() ? 0 : kNoRights; }).Wait() == kNoRights) {
            GTEST_SKIP() << "needs the right to mount sysfs";
        }
    }
};

}  // namespace

TEST_F(WiredInterface, IsMissingWhereOnlyLoopbackExists) {
    EXPECT_EQ(ReportsMac({}, ""), 0);
}

TEST_F(WiredInterface, IsNeverABridge) {
    EXPECT_EQ(ReportsMac({AddLink("br0", "bridge", "02:00:5e:00:00:01")}, ""), 0);
}

TEST_F(WiredInterface, IsNeverATunnel) {
    if (access("/dev/net/tun", R_OK | W_OK) != 0) {
        GTEST_SKIP() << "needs the right to make tunnels";
    }
    EXPECT_EQ(ReportsMac({{"ip", "tuntap", "add", "tap0", "mode", "tap"}}, ""), 0);
}

TEST_F(WiredInterface, IsNeverOneThatSpeaksNoArp) {
    const std::vector<Command> links = {AddPair("mute", 20, "02:00:5e:00:00:20"),
                                        {"ip", "link", "set", "mute", "arp", "off"},
                                        {"ip", "link", "set", "mute-p", "address", "02:00:5e:00:00:21"}};
    EXPECT_EQ(ReportsMac(links, "02:00:5e:00:00:21"), 0);
}

TEST_F(WiredInterface, IsTheVirtualOneOfLowestIndexInAContainer) {
    const std::vector<Command> links = {AddLink("br0", "bridge", "02:00:5e:00:00:01"),
                                        AddPair("second", 30, "02:00:5e:00:00:30"),
                                        AddPair("first", 20, "02:00:5e:00:00:20")};
    EXPECT_EQ(ReportsMac(links, "02:00:5e:00:00:20"), 0);
}

TEST_F(WiredInterface, IsThePhysicalOneBeforeAVirtualOneOfLowerIndex) {
    const std::vector<Command> links = {AddPair("first", 20, "02:00:5e:00:00:20"),
                                        AddPair("second", 30, "02:00:5e:00:00:30")};
    EXPECT_EQ(ReportsMac(links, "02:00:5e:00:00:20"), 0);
    EXPECT_EQ(ReportsMac(links, "02:00:5e:00:00:30", "second"), 0);
}

}  // namespace ARDV::Platform::Test
