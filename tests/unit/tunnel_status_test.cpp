// SPDX-License-Identifier: Apache-2.0
// What becomes of a tunnel: up, failed, closed, destroyed.
#include <string>
#include <vector>

#include "tunnel_fixture.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using TunnelStatus = TunnelTest;

const std::vector<std::string> kFlushed = {"/sbin/iptables|-F|TETHRA_RELAY", "/sbin/ip6tables|-F|TETHRA_RELAY"};
const std::vector<std::string> kGuarded = {
    "/sbin/iptables|-F|TETHRA_RELAY",
    "/sbin/ip6tables|-F|TETHRA_RELAY",
    "/sbin/iptables|-A|TETHRA_RELAY|-i|tun1000|-j|DROP",
    "/sbin/ip6tables|-A|TETHRA_RELAY|-i|tun1000|-j|DROP",
    "/sbin/iptables|-I|TETHRA_RELAY|-i|tun1000|-p|icmp|-j|ACCEPT",
    "/sbin/ip6tables|-I|TETHRA_RELAY|-i|tun1000|-p|ipv6-icmp|-j|ACCEPT",
};

constexpr const char* kSeen = "/tmp/record/seen";

/** Puts a program in a place that writes down which of the tunnel's files are there when it is called. */
void PutWitness(const std::string& place) {
    std::filesystem::remove(place);
    WriteText(place, std::string("#!/bin/sh\nls -d /tmp/.tunnel.* ") + kInformationFile + " >>" + kSeen +
                         " 2>/dev/null\nexit 0\n");
    std::filesystem::permissions(place, std::filesystem::perms(0755));
}

}  // namespace

TEST_F(TunnelStatus, PasswordIsGoneBeforeTheFilterIsSet) {
    StartOpenVpn();
    PutWitness("/sbin/iptables");
    tunnel.UpdateTunnelStatus();
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_READY);
    EXPECT_TRUE(std::filesystem::exists(kSeen));
    EXPECT_EQ(ReadText(kSeen), "");
}

TEST_F(TunnelStatus, DestroyDeletesTheFilesLast) {
    StartOpenVpn();
    WriteText(kInformationFile, "peer_ip=\"10.8.0.1\"\n");
    PutWitness("/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh");
    tunnel.Destroy();
    EXPECT_EQ(ReadText(kSeen), std::string(kInformationFile) + "\n" + kPassFile + "\n");
}

TEST_F(TunnelStatus, LivingChildIsATunnelThatIsUp) {
    StartOpenVpn();
    const int pid = tunnel.GetPid();
    EXPECT_TRUE(tunnel.UpdateTunnelStatus());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_READY);
    EXPECT_EQ(tunnel.GetPid(), pid);
    EXPECT_EQ(alarm(0), 0U) << "its time to come up is over";
    EXPECT_THAT(PassFiles(), IsEmpty());
    EXPECT_THAT(programs.Calls(), ElementsAreArray(kGuarded));
}

TEST_F(TunnelStatus, NothingHappensWhileItIsUp) {
    BringUp();
    WriteText(kPassFile, "of nobody");
    alarm(100);
    EXPECT_FALSE(tunnel.UpdateTunnelStatus());
    EXPECT_FALSE(tunnel.CheckStatusChanged());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_READY);
    EXPECT_GT(alarm(0), 0U);
    EXPECT_THAT(PassFiles(), ElementsAre(kPassFile));
    EXPECT_THAT(programs.Calls(), IsEmpty());
}

TEST_F(TunnelStatus, ChildThatEndsBeforeIsAFailure) {
    StartOpenVpn();
    EndOpenVpn();
    EXPECT_TRUE(tunnel.UpdateTunnelStatus());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_FAILED);
    EXPECT_EQ(tunnel.GetPid(), -1);
    EXPECT_EQ(alarm(0), 0U);
    EXPECT_THAT(PassFiles(), IsEmpty());
    EXPECT_THAT(programs.Calls(), ElementsAre(kModuleUnload));
}

TEST_F(TunnelStatus, FailureStaysOne) {
    StartOpenVpn();
    EndOpenVpn();
    tunnel.UpdateTunnelStatus();
    programs.Forget();
    alarm(100);
    WriteText(kPassFile, "left over");
    EXPECT_TRUE(tunnel.UpdateTunnelStatus());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_FAILED);
    EXPECT_EQ(alarm(0), 0U);
    EXPECT_THAT(PassFiles(), IsEmpty());
    EXPECT_THAT(programs.Calls(), IsEmpty());
}

TEST_F(TunnelStatus, ChildThatIsNotReapedCountsAsAlive) {
    StartOpenVpn();
    kill(tunnel.GetPid(), SIGKILL);
    ASSERT_TRUE(HasEnded(tunnel.GetPid(), 10'000));
    EXPECT_TRUE(tunnel.IsAlive());
    EXPECT_FALSE(tunnel.CheckStatusChanged());
    Reap(tunnel.GetPid());
    EXPECT_FALSE(tunnel.IsTunnelAlive());
    EXPECT_EQ(tunnel.GetPid(), -1);
}

TEST_F(TunnelStatus, TunnelThatWasUpIsClosedOnce) {
    BringUp();
    EndOpenVpn();
    EXPECT_TRUE(tunnel.CheckStatusChanged());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_CLOSE);
    EXPECT_EQ(tunnel.GetPid(), -1);
    EXPECT_FALSE(tunnel.CheckStatusChanged());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_CLOSE);
    EXPECT_THAT(programs.Calls(), IsEmpty());
}

TEST_F(TunnelStatus, OneThatWasNeverUpIsNotClosed) {
    EXPECT_FALSE(tunnel.CheckStatusChanged());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_NONE);
    StartOpenVpn();
    EXPECT_FALSE(tunnel.CheckStatusChanged());
    EndOpenVpn();
    EXPECT_FALSE(tunnel.CheckStatusChanged());
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_CREATING);
}

TEST_F(TunnelStatus, UpdateWithoutAChildIsNoTunnel) {
    for (const TUNNEL_STATUS status :
         {TUNNEL_STATUS_NONE, TUNNEL_STATUS_READY, TUNNEL_STATUS_CLOSE, TUNNEL_STATUS_INVALID_CONF}) {
        tunnel.SetStatus(status);
        alarm(100);
        EXPECT_TRUE(tunnel.UpdateTunnelStatus());
        EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_NONE);
        EXPECT_EQ(alarm(0), 0U);
    }
    EXPECT_THAT(programs.Calls(), IsEmpty());
}

TEST_F(TunnelStatus, ClosedTunnelCanBeMadeAgain) {
    BringUp();
    EndOpenVpn();
    ASSERT_TRUE(tunnel.CheckStatusChanged());
    tunnel.Destroy();
    tunnel.ResetTunnelData();
    EXPECT_TRUE(tunnel.Create(Candidates({"udp"}), true, true));
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_CREATING);
}

TEST_F(TunnelStatus, DestroyEndsTheChildAndClearsUp) {
    BringUp();
    const int pid = tunnel.GetPid();
    WriteText(kPassFile, "left over");
    WriteText(kInformationFile, "peer_ip=\"10.8.0.1\"\n");
    alarm(100);
    EXPECT_TRUE(tunnel.Destroy());
    EXPECT_EQ(Reap(pid), -SIGTERM);
    auto calls = kFlushed;
    calls.emplace_back(kModuleUnload);
    EXPECT_THAT(programs.Calls(), ElementsAreArray(calls));
    EXPECT_FALSE(std::filesystem::exists(kInformationFile));
    EXPECT_THAT(PassFiles(), IsEmpty());
    EXPECT_EQ(tunnel.GetPid(), -1);
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_READY) << "it stays";
    EXPECT_GT(alarm(0), 0U) << "it stays";
}

TEST_F(TunnelStatus, DestroyTellsWhomItEnds) {
    StartOpenVpn();
    const std::string ended = "tunnel.cpp kill openvpn " + std::to_string(tunnel.GetPid());
    EXPECT_THAT(
        MessagesAt(7, [this] { tunnel.Destroy(); }),
        ElementsAre("tunnel.cpp Remove iptable rules", ended, "tunnel.cpp [iptablestool] remove kernel module"));
}

TEST_F(TunnelStatus, DestroySaysNothingAtTheLevelOfInformation) {
    StartOpenVpn();
    EXPECT_THAT(MessagesAt(6, [this] { tunnel.Destroy(); }), IsEmpty());
}

TEST_F(TunnelStatus, DestroyWithoutAChildSignalsNobody) {
    StartOpenVpn();
    EndOpenVpn();
    EXPECT_THAT(MessagesAt(7, [this] { EXPECT_TRUE(tunnel.Destroy()); }),
                ElementsAre("tunnel.cpp Remove iptable rules", "tunnel.cpp [iptablestool] remove kernel module"));
    EXPECT_EQ(tunnel.GetStatus(), TUNNEL_STATUS_CREATING);
    EXPECT_EQ(tunnel.GetPid(), -1);
}

TEST_F(TunnelStatus, DestructorLeavesEverythingAsItIs) {
    int pid = -1;
    {
        Tunnel other(JsonOf(kRelayJson));
        ASSERT_TRUE(other.RunVPNTunnel(Candidate("udp")));
        pid = other.GetPid();
        programs.AwaitOpenVpn();
        programs.Forget();
    }
    EXPECT_FALSE(HasEnded(pid, 0));
    EXPECT_THAT(PassFiles(), ElementsAre(kPassFile));
    EXPECT_THAT(programs.Calls(), IsEmpty());
    EXPECT_GT(alarm(0), 0U);
}

TEST_F(TunnelStatus, WritesWhatItsChildIs) {
    BringUp();
    EXPECT_EQ(Written(tunnel, true),
              "{\"pid\":" + std::to_string(tunnel.GetPid()) +
                  ",\"relay_ip\":\"198.51.100.7\",\"relay_user\":\"u1\",\"status\":\"READY\"}\n");
}

TEST_F(TunnelStatus, KnowsThePeersAddress) {
    EXPECT_EQ(tunnel.GetVpnTunnelPeerIp(), "") << "there is no file";
    WriteText(kInformationFile, "local_ip=\"10.8.0.2\"\n");
    EXPECT_EQ(tunnel.GetVpnTunnelPeerIp(), "") << "there is no such key";
    WriteText(kInformationFile, "local_ip=\"10.8.0.2\"\npeer_ip=\"10.8.0.1\"\npeer_ip6=\"fd78::1\"\n");
    EXPECT_EQ(tunnel.GetVpnTunnelPeerIp(), "10.8.0.1");
    WriteText(kInformationFile, "peer_ip=\"" + std::string(2000, '1') + "\"\n");
    EXPECT_EQ(tunnel.GetVpnTunnelPeerIp(), std::string(1023, '1'));
}

TEST_F(TunnelStatus, TakesNoPeersAddressFromAPlantedFile) {
    WriteText("/tmp/.planted", "peer_ip=\"192.0.2.66\"\n");
    std::filesystem::create_symlink("/tmp/.planted", kInformationFile);
    EXPECT_EQ(tunnel.GetVpnTunnelPeerIp(), "");
    std::filesystem::remove(kInformationFile);
    WriteText(kInformationFile, "peer_ip=\"192.0.2.66\"\n");
    if (chown(kInformationFile, 12345, 12345) != 0) {
        GTEST_SKIP() << "needs the right to give files away";
    }
    EXPECT_EQ(tunnel.GetVpnTunnelPeerIp(), "");
}

TEST_F(TunnelStatus, DestroyDeletesALinkAndNotItsTarget) {
    WriteText("/tmp/.planted", "x");
    std::filesystem::create_symlink("/tmp/.planted", kInformationFile);
    tunnel.Destroy();
    EXPECT_FALSE(std::filesystem::is_symlink(std::filesystem::symlink_status(kInformationFile)));
    EXPECT_EQ(ReadText("/tmp/.planted"), "x");
}

}  // namespace ARDV::Relay
