// SPDX-License-Identifier: Apache-2.0
// The library's tunnel with a real OpenVPN at both ends and a real packet filter.
#include "integration/tunnel_library_fixture.h"

namespace ardv::test {
namespace {

class TunnelProtocol : public LibraryTunnelTest, public testing::WithParamInterface<Protocol> {};

TEST_P(TunnelProtocol, CarriesThePage) {
    const Protocol& protocol = GetParam();
    BringUp(Candidates({protocol}));
    EXPECT_EQ(Fetch("relay", protocol.DeviceInner4(), kPage), DeviceServices::Page());
    EXPECT_EQ(Fetch("relay", protocol.DeviceInner6(), kPage), DeviceServices::Page());
    EXPECT_EQ(Fetch("relay", protocol.DeviceInner4(), kPage, "1m", 10), DeviceServices::Large());
    EXPECT_EQ(Fetch("relay", protocol.DeviceInner6(), kPage, "1m", 10), DeviceServices::Large());
    EXPECT_EQ(Fetch("relay", protocol.DeviceInner4(), kPhotos, "index.html", 1), "");
    EXPECT_EQ(tunnel.GetVpnTunnelPeerIp(), protocol.RelayInner4());
    EXPECT_THAT(PasswordFiles(), testing::IsEmpty());
    EndChild();
    ExpectNoTrace();
}

INSTANTIATE_TEST_SUITE_P(Each, TunnelProtocol, testing::ValuesIn(kProtocols), ProtocolName);

constexpr int kLimit = 15'000;  // milliseconds

class LibraryTunnel : public LibraryTunnelTest {};

TEST_F(LibraryTunnel, IsClosedWhenTheRelayHasDied) {
    BringUp(Candidates({kTcp}));
    relay->Kill();
    ASSERT_TRUE(HasEnded(child, kLimit));
    Reap(child);
    EXPECT_TRUE(tunnel.CheckStatusChanged());
    EXPECT_EQ(tunnel.GetStatus(), ARDV::Relay::TUNNEL_STATUS_CLOSE);
    const InNamespace device("device");
    tunnel.Destroy();
    ExpectNoTrace();
}

TEST_F(LibraryTunnel, FailsWithAWrongPasswordAndGoesOnWithTheNextCandidate) {
    RelayServer::Admit("box", "another", "45000:5000");
    const InNamespace device("device");
    const auto candidates = Candidates({kUdp, kTcp});
    ASSERT_TRUE(tunnel.Create(candidates, true, true));
    ASSERT_TRUE(HasEnded(tunnel.GetPid(), kLimit));
    Reap(tunnel.GetPid());
    EXPECT_TRUE(tunnel.UpdateTunnelStatus());
    EXPECT_EQ(tunnel.GetStatus(), ARDV::Relay::TUNNEL_STATUS_FAILED);
    EXPECT_THAT(PasswordFiles(), testing::IsEmpty());
    RelayServer::Admit("box", "secret-of-the-box", "45000:5000");
    ASSERT_TRUE(tunnel.Create(candidates, true, true));
    ASSERT_TRUE(AwaitUp());
    EXPECT_TRUE(tunnel.UpdateTunnelStatus());
    EXPECT_EQ(tunnel.GetVpnTunnelPeerIp(), kTcp.RelayInner4());
}

TEST_F(LibraryTunnel, LetsNothingThroughBeforeAPortIsAccepted) {
    PortWatch watch(kUdp.Route(), TellingPorts());
    BringUp(Candidates({kUdp}), {});
    EXPECT_EQ(ProbePorts(kUdp.Route(), TellingPorts()).answers, PortAnswers());
    EndChild();
    EXPECT_EQ(watch.End(), PortAnswers());
}

}  // namespace
}  // namespace ardv::test
