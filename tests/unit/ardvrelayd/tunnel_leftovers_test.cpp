// SPDX-License-Identifier: Apache-2.0
#include "tunnel_leftovers.h"

#include <filesystem>

#include <gmock/gmock.h>

#include <relay/daemon/daemon.h>
#include <relay/tunnel/tunnel_names.h>

#include "support/device_test.h"
#include "support/stand_in_tunnel.h"
#include "tunnel_info.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace ARDV::Relay;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

class TunnelLeftovers : public DeviceTest {
protected:
    TunnelLeftovers() { InstallTunnelStandIns(); }
};

TEST_F(TunnelLeftovers, AreNotLookedForWhereThereIsNoSignOfThem) {
    ClearTunnelLeftovers();
    EXPECT_THAT(TunnelCalls(), IsEmpty());
}

TEST_F(TunnelLeftovers, AreClearedAwayButForLinks) {
    WriteText("/tmp/.tunnel.box-1", "box-1\nhush");
    WriteText("/tmp/.tunnel.box-2", "");
    WriteText(ARDV::Relay::TunnelNames::kInformationFile, "openvpn_pid=\"1\"\n");
    fs::create_symlink("/etc/passwd", "/tmp/.tunnel.link");
    ClearTunnelLeftovers();
    EXPECT_THAT(TunnelCalls(),
                ElementsAre("iptables -F TETHRA_RELAY", "ip6tables -F TETHRA_RELAY", "ovpnc.sh unload tethraa-tunnel"));
    EXPECT_FALSE(fs::exists("/tmp/.tunnel.box-1"));
    EXPECT_FALSE(fs::exists("/tmp/.tunnel.box-2"));
    EXPECT_FALSE(fs::exists(ARDV::Relay::TunnelNames::kInformationFile));
    EXPECT_TRUE(fs::is_symlink("/tmp/.tunnel.link"));
    fs::remove("/tmp/.tunnel.link");
}

TEST_F(TunnelLeftovers, AreThoseOfTheTunnelThatTheStatusFileNames) {
    for (const char* status : {R"({"pid":1,"tunnel":{"status":"NONE"}})", R"({"pid":99999999,"tunnel":{"pid":"x"}})"}) {
        WriteText(Daemon::kStatusFile, status);
        ClearTunnelLeftovers();
        EXPECT_THAT(TunnelCalls(), testing::SizeIs(3)) << status;
    }
    for (const char* status : {R"({"pid":1})", R"({"pid":1,"tunnel":7})", "[]", "no JSON"}) {
        WriteText(Daemon::kStatusFile, status);
        ClearTunnelLeftovers();
        EXPECT_THAT(TunnelCalls(), IsEmpty()) << status;
    }
    fs::remove(Daemon::kStatusFile);
}

}  // namespace
